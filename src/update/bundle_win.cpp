#include "update/bundle.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <exception>
#include <memory>
#include <vector>

#include "util/file_utils.h"
#include "util/held_folder.h"
#include "util/io_deadline.h"
#include "util/path_judge.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

// A pipe's server learns nothing about us and cannot impersonate us.
constexpr DWORD kAnonymous = SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS;

/// For reading alone, and for nobody else to write, rename or delete meanwhile.
Result<FileHandle> openForExamination(const std::wstring& path, DWORD extraFlags) {
  FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL | extraFlags, nullptr));
  if (!file) return lastFailure();
  return file;
}

struct CopyLimits {
  std::int64_t bytes;
  /// Beside the thread's own deadline, which does not end what the system does asynchronously.
  std::chrono::steady_clock::time_point deadline;
};

DWORD CALLBACK limitCopy(LARGE_INTEGER, LARGE_INTEGER transferred, LARGE_INTEGER, LARGE_INTEGER, DWORD, DWORD,
                         HANDLE, HANDLE, LPVOID context) {
  const auto& limits = *static_cast<const CopyLimits*>(context);
  const bool goesOn =
      transferred.QuadPart <= limits.bytes && std::chrono::steady_clock::now() < limits.deadline;
  return goesOn ? PROGRESS_CONTINUE : PROGRESS_CANCEL;
}

/// Whether a file of this name may be opened, or why not. Judges the name alone.
Result<void> judgeBundlePath(const std::wstring& path) {
  const PathKind kind = judgePath(StringUtils::utf16to8(path));
  const bool isShare = kind == PathKind::Share || (kind == PathKind::LocalFolder && !isOnThisMachine(path));
  if (isShare && !isUsable(PathKind::Share)) return failure(ERROR_NETWORK_ACCESS_DENIED);
  if (!isShare && kind != PathKind::LocalFolder) return failure(ERROR_BAD_PATHNAME);
  return {};
}

constexpr DWORD kDigestBlockBytes = 1U << 20;

struct DigestFreer {
  void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};

/// Empty when the file cannot be read, or the library has no memory.
std::string digestOf(HANDLE file) {
  const std::unique_ptr<EVP_MD_CTX, DigestFreer> context(EVP_MD_CTX_new());
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) return {};
  std::vector<unsigned char> block(kDigestBlockBytes);
  for (DWORD read = 1; read != 0;) {
    if (ReadFile(file, block.data(), kDigestBlockBytes, &read, nullptr) == 0 ||
        EVP_DigestUpdate(context.get(), block.data(), read) != 1) {
      return {};
    }
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (EVP_DigestFinal_ex(context.get(), digest.data(), &size) != 1) return {};
  return fmt::format("{:02x}", fmt::join(digest.begin(), digest.begin() + size, ""));
}

}  // namespace

bool hasBundleExtension(const std::wstring& path) {
  return boost::filesystem::path(path).extension().native() == L".exe";
}

std::wstring stagedInstallerPath() {
  boost::system::error_code error;
  const auto directory = boost::filesystem::temp_directory_path(error);
  if (error) return {};
  return (directory / names::kStagedInstaller.wide).native();
}

bool isOnThisMachine(const std::wstring& path) {
  const std::string text = StringUtils::utf16to8(path);
  if (judgePath(text) != PathKind::LocalFolder) return false;
  // Behind "\\?\", in whichever slashes the path came.
  const std::wstring drive = {static_cast<wchar_t>(resolveDots(text)[4]), L':', L'\\'};
  const UINT type = GetDriveTypeW(drive.c_str());
  return type != DRIVE_REMOTE && type != DRIVE_UNKNOWN;  // which also says that it could not be found out
}

Result<FileHandle> openDiskFile(const std::wstring& path) {
  if (const auto judged = judgeBundlePath(path); !judged) return failure(judged.error());
  auto file = openForExamination(path, kAnonymous);
  if (!file) return file;
  // A link may have led elsewhere than the name said: to a pipe or a device, or to a
  // share. What it opened is judged again, by its real name.
  if (GetFileType(file->get()) != FILE_TYPE_DISK) return failure(ERROR_BAD_FILE_TYPE);
  const auto judged = judgeBundlePath(finalPath(file->get()).value_or(std::wstring()));
  if (!judged) return failure(judged.error());
  return file;
}

Result<FileHandle> openBundle(const std::wstring& path) {
  const IoDeadline deadline(kOpenLimit);
  return openDiskFile(path);
}

Result<void> copyBundle(const std::wstring& from, const std::wstring& to, std::int64_t maximumBytes) {
  const IoDeadline deadline(kCopyLimit);
  const std::string target = StringUtils::utf16to8(to);
  // What cannot be removed (a running installer) makes the copy fail, and so does
  // anything that somebody puts there in between.
  FileUtils::removeWhatever(target, true);
  CopyLimits limits{maximumBytes, std::chrono::steady_clock::now() + kCopyLimit};
  if (CopyFileExW(from.c_str(), to.c_str(), limitCopy, &limits, nullptr, COPY_FILE_FAIL_IF_EXISTS) == 0)
    return failure(failureCode(GetLastError()));
  // Not every system calls the progress routine, so the size is looked at again.
  if (FileUtils::fileSize(target) <= static_cast<std::uint64_t>(maximumBytes)) return {};
  FileUtils::deleteFile(target, true);
  return failure(ERROR_REQUEST_ABORTED);
}

Result<FileHandle> openStagedCopy(const std::wstring& path) {
  auto file = openForExamination(path, kAnonymous | FILE_FLAG_OPEN_REPARSE_POINT);
  if (!file) return file;
  if (const auto plain = checkPlainFileWithOneName(file->get()); !plain) return failure(plain.error());
  return file;
}

BackgroundDigest::BackgroundDigest(HANDLE file) noexcept {
  try {
    thread_ = std::thread([this, file] {
      try {
        digest_ = digestOf(file);
      } catch (const std::exception&) {  // out of memory: there is no digest
        digest_.clear();
      }
      OPENSSL_thread_stop();  // which would not learn by itself that the thread ends
    });
  } catch (const std::exception&) {  // no thread is to be had: there is no digest
    digest_.clear();
  }
}

const std::string& BackgroundDigest::finish() noexcept {
  if (thread_.joinable()) thread_.join();
  return digest_;
}

}  // namespace zarn
