#include "client/tool/files_win.h"
#include "os/system_error.h"

#include <windows.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>

namespace zarn::tool {

using FileUtils::HeldFolder;

FileEnd readEnd(const std::string& folder, const std::string& name, std::int64_t maximumBytes) {
  FileEnd result;
  const auto held = HeldFolder::hold(folder, FileUtils::Links::Follow, FileUtils::OwnPlaces::Allow);
  if (!held) {
    result.error = held.error().code();
    return result;
  }
  const auto opened = held->open(name, "rb");
  if (!opened) {
    result.error = opened.error().code();
    return result;
  }
  const auto& file = *opened;
  if (_fseeki64(file.get(), 0, SEEK_END) == 0) {
    const std::int64_t size = _ftelli64(file.get());
    result.cut = size > maximumBytes;
    _fseeki64(file.get(), result.cut ? size - maximumBytes : 0, SEEK_SET);
    result.bytes.resize(static_cast<std::size_t>(std::clamp(size, std::int64_t{0}, maximumBytes)));
  }
  result.bytes.resize(std::fread(result.bytes.data(), 1, result.bytes.size(), file.get()));
  if (std::ferror(file.get()) != 0) result.error = failureCode(lastSystemError());
  return result;
}

FolderFiles filesIn(const HeldFolder& folder) {
  FolderFiles result;
  const auto listed = folder.list([&](const FileUtils::FolderEntry& entry) {
    if (entry.isFile) result.names.push_back(FileUtils::toUtf8(entry.name));
  });
  if (!listed) result.error = listed.error().code();
  std::sort(result.names.begin(), result.names.end());
  return result;
}

bool mayBeFolder(const std::string& path) {
  const DWORD attributes = GetFileAttributesW(FileUtils::toPath(path).c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError() == ERROR_ACCESS_DENIED;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool isEmptyFolder(const std::string& path) {
  boost::system::error_code error;
  const auto native = FileUtils::toPath(path);
  return boost::filesystem::is_directory(native, error) && boost::filesystem::is_empty(native, error) &&
         !error;
}

bool isMissing(std::uint32_t error) noexcept {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

}  // namespace zarn::tool
