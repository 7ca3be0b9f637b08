#include <windows.h>

#include <boost/filesystem/operations.hpp>
#include <cstdio>
#include <vector>

#include "client/tool/archive.h"
#include "util/file_utils.h"
#include "util/system_error.h"

namespace zarn::tool {
namespace {

namespace fs = boost::filesystem;

bool copyAll(std::FILE* from, std::FILE* to) {
  std::vector<char> buffer(std::size_t{1} << 16);
  for (;;) {
    const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), from);
    if (count == 0) return std::ferror(from) == 0;
    if (std::fwrite(buffer.data(), 1, count, to) != count) return false;
  }
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
    FileUtils::ScopedFile target = create(name);
    if (!target) return false;
    return note(copyAll(file.get(), target.get())) && flush(std::move(target));
  }

  bool addText(const std::string& name, std::string text) override {
    FileUtils::ScopedFile target = create(name);
    if (!target) return false;
    return note(std::fwrite(text.data(), 1, text.size(), target.get()) == text.size()) &&
           flush(std::move(target));
  }

  bool finish() override {
    // Only an empty folder goes away; anything else makes the move fail.
    RemoveDirectoryW(FileUtils::toPath(path_).c_str());
    finished_ = note(MoveFileExW(FileUtils::toPath(temporary_).c_str(), FileUtils::toPath(path_).c_str(),
                                 MOVEFILE_WRITE_THROUGH) != 0);
    return finished_;
  }

  [[nodiscard]] std::string problem() const override { return systemErrorPhrase(error_); }

 private:
  FileUtils::ScopedFile create(const std::string& name) {
    const fs::path target = FileUtils::toPath(temporary_) / FileUtils::toPath(name);
    boost::system::error_code ignored;
    fs::create_directories(target.parent_path(), ignored);
    FileUtils::ScopedFile file = FileUtils::safeOpen(FileUtils::toUtf8(target), "wb", false);
    note(file != nullptr);
    return file;
  }

  /// What the C library still holds back may meet the full disk.
  bool flush(FileUtils::ScopedFile file) { return note(std::fclose(file.release()) == 0); }

  bool note(bool succeeded) noexcept {
    if (!succeeded) error_ = failureCode(lastSystemError());
    return succeeded;
  }

  std::string path_;
  std::string temporary_;
  std::uint32_t error_ = 0;
  bool finished_ = false;
};

}  // namespace

NewArchive newFolder(const std::string& path) {
  auto archive = std::make_unique<FolderArchive>(path);
  if (!archive->begin()) return {nullptr, archive->problem()};
  return {std::move(archive), {}};
}

}  // namespace zarn::tool
