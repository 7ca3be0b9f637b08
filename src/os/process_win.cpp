#include "os/process.h"

#include <windows.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

#include "os/text.h"

namespace zarn {

std::optional<std::string> environmentVariable(const char* name) {
  const std::wstring wideName = os::wideFromUtf8(name).value_or(std::wstring());
  std::wstring buffer;
  DWORD size = GetEnvironmentVariableW(wideName.c_str(), nullptr, 0);
  // Another thread may set a longer text between the two calls: ask again, for as long as it grows.
  while (size > buffer.size()) {
    buffer.resize(size);
    size = GetEnvironmentVariableW(wideName.c_str(), buffer.data(), size);
  }
  // An empty text needs room for its end (size 1) and is then 0 characters long.
  if (buffer.empty()) return std::nullopt;
  buffer.resize(size);
  return os::utf8FromWide(buffer).value_or(std::string());
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

namespace os {

void startUnawaited(std::function<void()> work) {
  // Not detached: the compiler's thread library may give the memory of a thread that ends just
  // then to two others.
  static_cast<void>(std::make_unique<std::thread>(std::move(work)).release());
}

Result<void> setEnvironmentVariable(const char* name, std::string_view text) {
  const auto wideName = wideFromUtf8(name);
  const auto wideText = wideFromUtf8(text);
  if (!wideName || !wideText) return failure(ERROR_NO_UNICODE_TRANSLATION);
  const wchar_t* const value = wideText->empty() ? nullptr : wideText->c_str();
  if (SetEnvironmentVariableW(wideName->c_str(), value) != FALSE) return {};
  // There was none to take away.
  if (value == nullptr && GetLastError() == ERROR_ENVVAR_NOT_FOUND) return {};
  return lastFailure();
}

// An empty value removes the variable, from the process's environment block too,
// which is where libcurl looks.
void removeEnvironmentVariable(const char* name) noexcept {
  ::_putenv_s(name, "");
}

Result<std::string> executablePath() {
  constexpr DWORD longestPath = 32768;
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return lastFailure();
    if (length < path.size()) return utf8FromWide({path.data(), length});
    if (path.size() >= longestPath) return lastFailure();
    path.resize(longestPath);  // the system cuts what does not fit and says so only by the length
  }
}

void endAfterFatalError() noexcept {
  constexpr DWORD fatalErrorCode = 0xC0DEDEAD;
  RaiseException(fatalErrorCode, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  std::abort();
}

// THREAD_TERMINATE is the right that cancelling needs.
InterruptibleThread::InterruptibleThread() noexcept
    : handle_(OpenThread(THREAD_TERMINATE, FALSE, GetCurrentThreadId())) {}

void InterruptibleThread::Traits::close(Handle handle) noexcept {
  CloseHandle(handle);
}

void InterruptibleThread::cancelIo() const noexcept {
  if (handle_) CancelSynchronousIo(handle_.get());
}

}  // namespace os
}  // namespace zarn
