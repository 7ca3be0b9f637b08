#include <utility>

#include "update/log_source.h"
#include "util/windows_handles.h"

namespace zarn {

std::shared_ptr<void> holdLogSource(const boost::filesystem::path& path, boost::system::error_code& error) {
  error.clear();
  // The installer may still be writing; nobody may delete or rename.
  auto file = std::make_shared<FileHandle>(
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                  FILE_FLAG_OPEN_REPARSE_POINT | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, nullptr));
  if (!*file) {
    error.assign(static_cast<int>(failureCode(GetLastError())), boost::system::system_category());
    return nullptr;
  }
  if (!isPlainFileWithOneName(file->get())) return nullptr;
  return file;
}

}  // namespace zarn
