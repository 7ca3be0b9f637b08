#include <array>
#include <exception>

#include <fmt/format.h>

#include "os/error_text.h"
#include "os/handles_win.h"
#include "plugin/setup_error.h"
#include "plugin/setup_log.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::setup {

SetupError systemFailure(const std::wstring& what, std::uint32_t error) {
  const std::uint32_t code = failureCode(error);
  return SetupError(ExitCode::Failed, what + L": " + StringUtils::utf8to16(systemErrorPhrase(code)) +
                                          L" (error " + std::to_wstring(code) + L").");
}

std::wstring defaultLogFile() {
  std::array<wchar_t, MAX_PATH> windows{};
  if (GetSystemWindowsDirectoryW(windows.data(), static_cast<UINT>(windows.size())) == 0) return {};
  const std::wstring folder = std::wstring(windows.data()) + L"\\Logs";
  CreateDirectoryW(folder.c_str(), nullptr);
  return folder + L"\\Zarn Update Service Setup.log";
}

void appendToLog(const std::wstring& file, const std::wstring& line) noexcept {
  try {
    // A link is not followed: what it names may be somebody else's.
    const FileHandle log(CreateFileW(file.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!log || !checkPlainFileWithOneName(log.get())) return;
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const std::string text =
        fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} {}\r\n", now.wYear, now.wMonth, now.wDay, now.wHour,
                    now.wMinute, now.wSecond, printable(StringUtils::utf16to8(line)));
    DWORD written = 0;
    WriteFile(log.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  } catch (const std::exception&) {
    // Nobody is left to tell.
  }
}

}  // namespace zarn::setup
