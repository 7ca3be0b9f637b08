#include <windows.h>

#include <io.h>
#include <sys/timeb.h>

#include <algorithm>
#include <cstdlib>

#include "log/log_platform.h"

namespace zarn::platform {

namespace {
constexpr DWORD kFatalErrorCode = 0xC0DEDEAD;
}  // namespace

LogTime currentLogTime() noexcept {
  __timeb64 now{};
  _ftime64(&now);
  return {now.time, now.millitm};
}

std::chrono::microseconds writerPollInterval() noexcept {
  return std::chrono::microseconds(0);
}

bool writeThrough(std::FILE& file, std::string_view text) noexcept {
  constexpr std::size_t most = 1 << 20;  // the library's own count of a call's bytes is an int
  while (!text.empty()) {
    const int written =
        _write(_fileno(&file), text.data(), static_cast<unsigned>(std::min(text.size(), most)));
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool emptyFile(std::FILE& file) noexcept {
  const int descriptor = _fileno(&file);
  return _chsize_s(descriptor, 0) == 0 && _lseeki64(descriptor, 0, SEEK_SET) == 0;
}

void endAfterFatalError() noexcept {
  RaiseException(kFatalErrorCode, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  std::abort();
}

}  // namespace zarn::platform
