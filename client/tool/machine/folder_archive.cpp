#include <windows.h>

#include <boost/filesystem/operations.hpp>
#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

#include "client/tool/machine/archive.h"
#include "os/handles_win.h"
#include "util/file_utils.h"

namespace zarn::tool {
namespace {

namespace fs = boost::filesystem;

Attempt<> attemptOf(const Result<void>& result) {
  if (!result) return tl::unexpected(Problem(result.error()));
  return {};
}

Result<void> writeAll(HANDLE file, std::string_view bytes) {
  DWORD written = 0;
  if (bytes.empty()) return {};
  return resultOf(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != 0 &&
                  written == bytes.size());
}

/// Fills a folder of another name beside the place and moves it there.
class FolderArchive final : public Archive {
 public:
  explicit FolderArchive(const std::string& path)
      : path_(FileUtils::toPath(path)),
        temporary_(FileUtils::toPath(path + ".part" + std::to_string(GetCurrentProcessId()))) {}
  FolderArchive(const FolderArchive&) = delete;
  FolderArchive& operator=(const FolderArchive&) = delete;
  ~FolderArchive() override {
    boost::system::error_code ignored;
    if (!finished_) fs::remove_all(temporary_, ignored);
  }

  Attempt<> begin() { return attemptOf(resultOf(CreateDirectoryW(temporary_.c_str(), nullptr) != 0)); }

  Attempt<> addFile(const std::string& name, os::ScopedFile file) override {
    const fs::path path = pathOf(name);
    auto target = create(path);
    if (!target) return attemptOf(failure(target.error()));
    std::vector<char> buffer(std::size_t{1} << 16);
    for (;;) {
      const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), file.get());
      if (count == 0) break;
      if (const auto written = writeTo(target->get(), {buffer.data(), count}); !written) {
        return attemptOf(written);
      }
    }
    const auto read = resultOf(std::ferror(file.get()) == 0);
    // A file of which the rest is missing would pass for a whole one, so it goes; the
    // archive itself is sound and goes on.
    if (!read) {
      target->reset();
      DeleteFileW(path.c_str());
    }
    return attemptOf(read);
  }

  Attempt<> addText(const std::string& name, std::string text) override {
    const auto target = create(pathOf(name));
    return attemptOf(target ? writeTo(target->get(), text) : failure(target.error()));
  }

  Attempt<> finish() override {
    if (broken_) return tl::unexpected(Problem(*broken_));
    // Only an empty folder goes away; anything else makes the move fail.
    RemoveDirectoryW(path_.c_str());
    const auto moved = resultOf(MoveFileExW(temporary_.c_str(), path_.c_str(), MOVEFILE_WRITE_THROUGH) != 0);
    finished_ = moved.has_value();
    return attemptOf(moved);
  }

 private:
  [[nodiscard]] fs::path pathOf(const std::string& name) const {
    return temporary_ / FileUtils::toPath(name);
  }

  Result<FileHandle> create(const fs::path& path) {
    boost::system::error_code ignored;
    fs::create_directories(path.parent_path(), ignored);
    // CREATE_NEW: nobody else can have put a file, or a link to one, in this place.
    FileHandle file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file) return file;
    broken_ = SystemError::last();
    return failure(*broken_);
  }

  Result<void> writeTo(HANDLE file, std::string_view bytes) {
    const auto written = writeAll(file, bytes);
    if (!written) broken_ = written.error();
    return written;
  }

  const fs::path path_;
  const fs::path temporary_;
  /// Why something could not be written: a whole archive can no longer come of it.
  std::optional<SystemError> broken_;
  bool finished_ = false;
};

}  // namespace

NewArchive newFolder(const std::string& path) {
  auto archive = std::make_unique<FolderArchive>(path);
  if (auto begun = archive->begin(); !begun) return tl::unexpected(std::move(begun.error()));
  return archive;
}

}  // namespace zarn::tool
