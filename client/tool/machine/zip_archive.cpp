#include <windows.h>

#include <zip.h>

#include <cerrno>
#include <deque>
#include <utility>

#include "client/tool/machine/archive.h"
#include "os/handles.h"
#include "util/file_utils.h"

namespace zarn::tool {
namespace {

struct ZipTraits {
  using Handle = zip_t*;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle zip) noexcept { zip_discard(zip); }
};
using Zip = ScopedHandle<ZipTraits>;

struct ZipSourceTraits {
  using Handle = zip_source_t*;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle source) noexcept { zip_source_free(source); }
};
using ZipSource = ScopedHandle<ZipSourceTraits>;

/// The library hands most errors of the system on as this number plus their code.
constexpr int kSystemErrorBase = 10000;

Problem problemOf(zip_error_t* error) {
  const int code = zip_error_code_system(error);
  if (code > kSystemErrorBase)
    return Problem(SystemError(static_cast<std::uint32_t>(code - kSystemErrorBase)));
  // A write that ends early leaves no code: nothing but a full disk does that.
  const bool isFull =
      zip_error_code_zip(error) == ZIP_ER_WRITE && (code == ENOSPC || code == kSystemErrorBase);
  return isFull ? Problem(SystemError(ERROR_DISK_FULL)) : Problem(std::string(zip_error_strerror(error)));
}

/// The library writes to a temporary file beside the target, and renames it.
class ZipArchive final : public Archive {
 public:
  Attempt<> begin(const std::string& path) {
    // There is no archive yet that could keep the error, so it has a place of its own.
    zip_error_t error;
    zip_error_init(&error);
    ZipSource target(zip_source_win32w_create(FileUtils::toPath(path).c_str(), 0, -1, &error));
    if (target) {
      zip_.reset(zip_open_from_source(target.get(), ZIP_CREATE | ZIP_EXCL, &error));
      if (zip_) static_cast<void>(target.release());
    }
    Attempt<> result;
    if (!zip_) result = tl::unexpected(problemOf(&error));
    zip_error_fini(&error);
    return result;
  }

  Attempt<> addFile(const std::string& name, os::ScopedFile file) override {
    // Only so much is read as there is now: the service may be writing to it.
    const std::int64_t size = os::seekToEnd(*file);
    _fseeki64(file.get(), 0, SEEK_SET);
    ZipSource source(zip_source_filep(zip_.get(), file.get(), 0, size));
    if (!source) return lastProblem();
    static_cast<void>(file.release());  // closed with the source
    return add(name, std::move(source));
  }

  Attempt<> addText(const std::string& name, std::string text) override {
    const std::string& kept = texts_.emplace_back(std::move(text));
    ZipSource source(zip_source_buffer(zip_.get(), kept.data(), kept.size(), 0));
    if (!source) return lastProblem();
    return add(name, std::move(source));
  }

  Attempt<> finish() override {
    // All reading and writing happens here. An archive that could not be closed is still
    // ours, and is discarded with its temporary file.
    if (zip_close(zip_.get()) != 0) return lastProblem();
    static_cast<void>(zip_.release());
    return {};
  }

 private:
  Attempt<> add(const std::string& name, ZipSource source) {
    if (zip_file_add(zip_.get(), name.c_str(), source.get(), ZIP_FL_ENC_UTF_8) < 0) return lastProblem();
    static_cast<void>(source.release());  // the archive's now
    return {};
  }

  [[nodiscard]] Attempt<> lastProblem() const { return tl::unexpected(problemOf(zip_get_error(zip_.get()))); }

  // Read by the library when the archive is finished, so it is destroyed after it.
  std::deque<std::string> texts_;
  Zip zip_;
};

}  // namespace

NewArchive newZip(const std::string& path) {
  auto archive = std::make_unique<ZipArchive>();
  if (auto begun = archive->begin(path); !begun) return tl::unexpected(std::move(begun.error()));
  return archive;
}

}  // namespace zarn::tool
