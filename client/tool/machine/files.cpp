#include "client/tool/machine/files.h"

#include <windows.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <memory>
#include <utility>

#include "os/files.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

/// Whether a folder is at the path, or something else.
Result<bool> isFolderAt(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return lastFailure();
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool isOfMissingFile(SystemError error) {
  return error.isNotFound() || error.code() == ERROR_INVALID_NAME || error.code() == ERROR_BAD_NETPATH;
}

std::string shown(const std::wstring& path) {
  return printable(StringUtils::utf16to8(path));
}

}  // namespace

Result<FileEnd> readEnd(const std::string& folder, const std::string& name, std::int64_t maximumBytes) {
  const auto held =
      FileUtils::HeldFolder::hold(folder, FileUtils::Links::Follow, FileUtils::OwnPlaces::Allow);
  if (!held) return failure(held.error());
  return readEnd(*held, name, maximumBytes);
}

Result<FileEnd> readEnd(const FileUtils::HeldFolder& folder, const std::string& name,
                        std::int64_t maximumBytes) {
  const auto opened = folder.open(name, "rb");
  if (!opened) return failure(opened.error());
  std::FILE* const file = opened->get();
  FileEnd result;
  const std::int64_t size = os::seekToEnd(*file);
  result.isCut = size > maximumBytes;
  _fseeki64(file, result.isCut ? size - maximumBytes : 0, SEEK_SET);
  // The file may shrink meanwhile, and what it grows by is left out.
  result.bytes.resize(static_cast<std::size_t>(std::clamp(size, std::int64_t{0}, maximumBytes)));
  result.bytes.resize(std::fread(result.bytes.data(), 1, result.bytes.size(), file));
  if (std::ferror(file) != 0) return lastFailure();
  return result;
}

Result<std::string> readHead(const std::string& folder, const std::string& name, std::int64_t maximumBytes) {
  const auto held =
      FileUtils::HeldFolder::hold(folder, FileUtils::Links::Follow, FileUtils::OwnPlaces::Allow);
  const auto opened = held ? held->open(name, "rb") : Result<FileUtils::ScopedFile>(failure(held.error()));
  if (!opened) return failure(opened.error());
  std::string bytes(static_cast<std::size_t>(maximumBytes), '\0');
  bytes.resize(std::fread(bytes.data(), 1, bytes.size(), opened->get()));
  if (std::ferror(opened->get()) != 0) return lastFailure();
  return bytes;
}

LinesFromEnd linesFromEnd(os::ScopedFile file, std::int64_t maximumBytes) {
  const std::int64_t size = os::seekToEnd(*file);
  const std::shared_ptr<std::FILE> shared(std::move(file));
  const auto read = [shared](std::int64_t offset, std::size_t bytes) -> Result<std::string> {
    std::string block(bytes, '\0');
    if (_fseeki64(shared.get(), offset, SEEK_SET) != 0) return lastFailure();
    block.resize(std::fread(block.data(), 1, block.size(), shared.get()));
    if (std::ferror(shared.get()) != 0) return lastFailure();
    return block;
  };
  return {size, maximumBytes, read};
}

LinesFromEnd linesFromEnd(FileEnd end) {
  const auto bytes = static_cast<std::int64_t>(end.bytes.size());
  // What was cut off stands for one byte, so that its line is known to be torn.
  const std::int64_t cut = end.isCut ? 1 : 0;
  const auto read = [text = std::move(end.bytes), cut](std::int64_t offset, std::size_t count) {
    return Result<std::string>(text.substr(static_cast<std::size_t>(offset - cut), count));
  };
  return {bytes + cut, bytes, read};
}

Result<std::vector<std::string>> filesIn(const FileUtils::HeldFolder& folder) {
  std::vector<std::string> names;
  const auto listed = folder.list([&](const FileUtils::FolderEntry& entry) {
    if (entry.isFile) names.push_back(FileUtils::toUtf8(entry.name));
  });
  if (!listed) return failure(listed.error());
  std::sort(names.begin(), names.end());
  return names;
}

bool mayBeFolder(const std::string& path) {
  const auto isFolder = isFolderAt(FileUtils::toPath(path).native());
  return isFolder ? *isFolder : isFolder.error() == SystemError::accessDenied();
}

bool isEmptyFolder(const std::string& path) {
  boost::system::error_code error;
  const auto native = FileUtils::toPath(path);
  return boost::filesystem::is_directory(native, error) && boost::filesystem::is_empty(native, error) &&
         !error;
}

std::wstring absolutePath(const std::string& path) {
  const std::wstring wide = StringUtils::utf8to16(path);
  std::wstring full;
  DWORD size = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
  if (size == 0) return {};
  full.resize(size);
  // The current directory may become another between the calls: a size that no longer
  // fits gives no path.
  size = GetFullPathNameW(wide.c_str(), size, full.data(), nullptr);
  full.resize(size < full.size() ? size : 0);
  return FileUtils::toPath(StringUtils::utf16to8(full)).native();
}

std::optional<Answer> missingFile(const std::wstring& path) {
  if (path.empty()) return failed(ExitCode::LocalFailure, "The path is not valid.");
  const auto isFolder = isFolderAt(path);
  if (isFolder && *isFolder) {
    return failed(ExitCode::LocalFailure, "This is a folder and not a bundle: " + shown(path) + ".");
  }
  if (!isFolder && isOfMissingFile(isFolder.error())) {
    return failed(ExitCode::LocalFailure, "There is no such file: " + shown(path) + ".");
  }
  return std::nullopt;  // the service may see more than its caller
}

std::optional<Answer> missingFolder(const std::wstring& path) {
  const auto isFolder = isFolderAt(path);
  // The service may see a folder that its caller may not.
  if (!isFolder && isFolder.error() != SystemError::accessDenied()) {
    return failed(ExitCode::LocalFailure, "There is no such folder: " + shown(path) + ".");
  }
  if (isFolder && !*isFolder)
    return failed(ExitCode::LocalFailure, "This is no folder: " + shown(path) + ".");
  return std::nullopt;
}

}  // namespace zarn::tool
