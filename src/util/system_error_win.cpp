#include <windows.h>

#include <array>
#include <cstring>
#include <memory>

#include "util/string_utils.h"
#include "util/system_error.h"

namespace zarn {
namespace {

struct LocalFreeDeleter {
  void operator()(wchar_t* text) const noexcept { LocalFree(text); }
};

}  // namespace

std::uint32_t lastSystemError() noexcept {
  return GetLastError();
}

void setLastSystemError(std::uint32_t code) noexcept {
  SetLastError(code);
}

std::string systemErrorText(std::uint32_t code) {
  wchar_t* raw = nullptr;
  // With ALLOCATE_BUFFER the "buffer" argument is the address of a pointer.
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
      code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<wchar_t*>(&raw), 0, nullptr);
  const std::unique_ptr<wchar_t, LocalFreeDeleter> owner(raw);
  if (length == 0 || raw == nullptr) return {};
  return StringUtils::utf16to8(std::wstring_view(raw, length));
}

std::uint32_t currentThreadId() noexcept {
  return GetCurrentThreadId();
}

void setCurrentThreadName(const char* name) noexcept {
  // Present since Windows 10 1607; looked up so that older systems still start.
  using SetThreadDescriptionFunction = HRESULT(WINAPI*)(HANDLE, PCWSTR);
  const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  if (kernel == nullptr) return;
  SetThreadDescriptionFunction describe = nullptr;
  const FARPROC address = GetProcAddress(kernel, "SetThreadDescription");
  static_assert(sizeof(describe) == sizeof(address));
  std::memcpy(&describe, &address, sizeof(describe));
  if (describe == nullptr) return;
  std::array<wchar_t, 16> wide{};
  for (std::size_t i = 0; i + 1 < wide.size() && name[i] != '\0'; ++i) {
    wide[i] = static_cast<wchar_t>(static_cast<unsigned char>(name[i]));
  }
  describe(GetCurrentThread(), wide.data());
}

}  // namespace zarn
