#include "client/tool/console_win.h"

#include <windows.h>

#include <algorithm>

#include "util/string_utils.h"

namespace zarn::tool {
namespace {

HANDLE handleOf(Stream stream) noexcept {
  return GetStdHandle(stream == Stream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

bool writeToTerminal(HANDLE terminal, std::wstring_view text) noexcept {
  constexpr std::size_t atOnce = 8192;  // a console takes no more than 64 KiB in one call
  while (!text.empty()) {
    const auto count = static_cast<DWORD>(std::min(text.size(), atOnce));
    DWORD written = 0;
    if (WriteConsoleW(terminal, text.data(), count, &written, nullptr) == 0 || written == 0) return false;
    text.remove_prefix(written);
  }
  return true;
}

bool writeToFile(HANDLE file, std::string_view text) noexcept {
  while (!text.empty()) {
    DWORD written = 0;
    if (WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == 0) return false;
    // A full disk can show as nothing written.
    if (written == 0) return SetLastError(ERROR_DISK_FULL), false;
    text.remove_prefix(written);
  }
  return true;
}

}  // namespace

bool isTerminal(Stream stream) noexcept {
  DWORD mode = 0;
  return GetConsoleMode(handleOf(stream), &mode) != 0;
}

bool write(Stream stream, std::string_view text) {
  const HANDLE handle = handleOf(stream);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return true;
  return isTerminal(stream) ? writeToTerminal(handle, StringUtils::utf8to16(text))
                            : writeToFile(handle, text);
}

}  // namespace zarn::tool
