#include <windows.h>

#include <boost/filesystem/operations.hpp>
#include <cstdio>
#include <vector>

#include "client/tool/archive.h"
#include "os/error_text.h"
#include "os/handles_win.h"
#include "util/file_utils.h"

namespace zarn::tool {
namespace {

namespace fs = boost::filesystem;

bool writeAll(HANDLE file, const char* data, std::size_t size) {
  DWORD written = 0;
  return size == 0 ||
         (WriteFile(file, data, static_cast<DWORD>(size), &written, nullptr) != 0 && written == size);
}

class FolderArchive final : public Archive {
 public:
  explicit FolderArchive(const std::string& path)
      : path_(path), temporary_(path + ".part" + std::to_string(GetCurrentProcessId())) {}
  FolderArchive(const FolderArchive&) = delete;
  FolderArchive& operator=(const FolderArchive&) = delete;
  ~FolderArchive() override {
    boost::system::error_code ignored;
    if (!finished_) fs::remove_all(FileUtils::toPath(temporary_), ignored);
  }

  bool begin() { return note(CreateDirectoryW(FileUtils::toPath(temporary_).c_str(), nullptr) != 0); }

  bool addFile(const std::string& name, FileUtils::ScopedFile file) override {
    const fs::path path = pathOf(name);
    FileHandle target = create(path);
    if (!target) return false;
    std::vector<char> buffer(std::size_t{1} << 16);
    for (;;) {
      const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), file.get());
      if (count == 0) break;
      if (!writeTo(target.get(), buffer.data(), count)) return false;
    }
    if (note(std::ferror(file.get()) == 0)) return true;
    target.reset();
    DeleteFileW(path.c_str());
    return false;
  }

  bool addText(const std::string& name, std::string text) override {
    const FileHandle target = create(pathOf(name));
    return target && writeTo(target.get(), text.data(), text.size());
  }

  bool finish() override {
    if (broken_) return false;
    // Only an empty folder goes away; anything else makes the move fail.
    RemoveDirectoryW(FileUtils::toPath(path_).c_str());
    finished_ = note(MoveFileExW(FileUtils::toPath(temporary_).c_str(), FileUtils::toPath(path_).c_str(),
                                 MOVEFILE_WRITE_THROUGH) != 0);
    return finished_;
  }

  [[nodiscard]] std::string problem() const override { return systemErrorPhrase(error_); }

 private:
  [[nodiscard]] fs::path pathOf(const std::string& name) const {
    return FileUtils::toPath(temporary_) / FileUtils::toPath(name);
  }

  FileHandle create(const fs::path& path) {
    boost::system::error_code ignored;
    fs::create_directories(path.parent_path(), ignored);
    FileHandle file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    broken_ = !note(file.isValid()) || broken_;
    return file;
  }

  bool writeTo(HANDLE file, const char* data, std::size_t size) {
    broken_ = !note(writeAll(file, data, size)) || broken_;
    return !broken_;
  }

  bool note(bool succeeded) noexcept {
    if (!succeeded) error_ = failureCode(lastSystemError());
    return succeeded;
  }

  std::string path_;
  std::string temporary_;
  std::uint32_t error_ = 0;
  /// Something could not be written: a whole archive can no longer come of it.
  bool broken_ = false;
  bool finished_ = false;
};

}  // namespace

NewArchive newFolder(const std::string& path) {
  auto archive = std::make_unique<FolderArchive>(path);
  if (!archive->begin()) return {nullptr, archive->problem()};
  return {std::move(archive), {}};
}

}  // namespace zarn::tool
