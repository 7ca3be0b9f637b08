#include <windows.h>

#include <zip.h>

#include <cerrno>
#include <deque>
#include <utility>

#include "client/tool/archive.h"
#include "os/error_text.h"
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

struct SourceTraits {
  using Handle = zip_source_t*;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle source) noexcept { zip_source_free(source); }
};
using Source = ScopedHandle<SourceTraits>;

/// The library hands most errors of the system on as this number plus their code.
constexpr int kSystemErrorBase = 10000;

std::string wordsFor(zip_error_t* error) {
  const int code = zip_error_code_system(error);
  if (code > kSystemErrorBase) return systemErrorPhrase(static_cast<std::uint32_t>(code - kSystemErrorBase));
  // A write that ends early leaves no code: nothing but a full disk does that.
  const bool isFull =
      zip_error_code_zip(error) == ZIP_ER_WRITE && (code == ENOSPC || code == kSystemErrorBase);
  return isFull ? systemErrorPhrase(ERROR_DISK_FULL) : zip_error_strerror(error);
}

/// The library writes to a temporary file beside the target, and renames it.
class ZipArchive final : public Archive {
 public:
  bool begin(const std::string& path) {
    zip_error_t error;
    zip_error_init(&error);
    Source target(zip_source_win32w_create(FileUtils::toPath(path).c_str(), 0, -1, &error));
    if (target) {
      zip_.reset(zip_open_from_source(target.get(), ZIP_CREATE | ZIP_EXCL, &error));
      if (zip_) static_cast<void>(target.release());
    }
    if (!zip_) problem_ = wordsFor(&error);
    zip_error_fini(&error);
    return zip_.isValid();
  }

  bool addFile(const std::string& name, FileUtils::ScopedFile file) override {
    _fseeki64(file.get(), 0, SEEK_END);
    const std::int64_t size = _ftelli64(file.get());
    _fseeki64(file.get(), 0, SEEK_SET);
    Source source(zip_source_filep(zip_.get(), file.get(), 0, size));
    if (!source) return fail();
    static_cast<void>(file.release());  // closed with the source
    return add(name, std::move(source));
  }

  bool addText(const std::string& name, std::string text) override {
    const std::string& kept = texts_.emplace_back(std::move(text));
    Source source(zip_source_buffer(zip_.get(), kept.data(), kept.size(), 0));
    if (!source) return fail();
    return add(name, std::move(source));
  }

  bool finish() override {
    if (zip_close(zip_.get()) != 0) return fail();
    static_cast<void>(zip_.release());
    return true;
  }

  [[nodiscard]] std::string problem() const override { return problem_; }

 private:
  bool add(const std::string& name, Source source) {
    if (zip_file_add(zip_.get(), name.c_str(), source.get(), ZIP_FL_ENC_UTF_8) < 0) {
      return fail();
    }
    static_cast<void>(source.release());
    return true;
  }

  bool fail() {
    problem_ = wordsFor(zip_get_error(zip_.get()));
    return false;
  }

  // Read by the library when the archive is finished.
  std::deque<std::string> texts_;
  Zip zip_;
  std::string problem_;
};

}  // namespace

NewArchive newZip(const std::string& path) {
  auto archive = std::make_unique<ZipArchive>();
  if (!archive->begin(path)) return {nullptr, archive->problem()};
  return {std::move(archive), {}};
}

}  // namespace zarn::tool
