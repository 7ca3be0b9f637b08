#include "update/log_source.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <utility>

#include "util/io_deadline.h"
#include "util/windows_handles.h"

namespace zarn {
namespace {

HANDLE handleOf(std::FILE* file) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)));
}

FileUtils::ScopedFile toStream(FileHandle handle) {
  const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle.get()), _O_RDONLY | _O_BINARY);
  if (descriptor == -1) return nullptr;
  static_cast<void>(handle.release());  // the descriptor owns it now
  FileUtils::ScopedFile file(_fdopen(descriptor, "rb"));
  if (!file) _close(descriptor);
  return file;
}

}  // namespace

FileUtils::ScopedFile openLogSource(const boost::filesystem::path& path, boost::system::error_code& error) {
  error.clear();
  const IoDeadline deadline(kOpenLimit);
  const auto fail = [&](std::uint32_t code) {
    error.assign(static_cast<int>(failureCode(code)), boost::system::system_category());
    return nullptr;
  };
  // The installer may still be writing.
  FileHandle handle(
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                  FILE_FLAG_OPEN_REPARSE_POINT | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, nullptr));
  if (!handle) return fail(GetLastError());
  if (!isPlainFileWithOneName(handle.get())) return nullptr;
  FileUtils::ScopedFile file = toStream(std::move(handle));
  return file ? std::move(file) : fail(ERROR_TOO_MANY_OPEN_FILES);
}

void keepTime(std::FILE* from, std::FILE* to) noexcept {
  FILETIME written{};
  if (GetFileTime(handleOf(from), nullptr, nullptr, &written) != 0)
    SetFileTime(handleOf(to), nullptr, nullptr, &written);
}

}  // namespace zarn
