#include "update/staged_installer.h"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

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

FileHandle openForExamination(const std::wstring& path, DWORD extraFlags) {
  return FileHandle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL | extraFlags, nullptr));
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

/// 0, or the error for which nothing is opened by this name.
DWORD refusalOf(const std::wstring& path) {
  const PathKind kind = judgePath(StringUtils::utf16to8(path));
  const bool isShare = kind == PathKind::Share || (kind == PathKind::LocalFolder && !isOnThisMachine(path));
  if (isShare) return isUsable(PathKind::Share) ? 0 : ERROR_NETWORK_ACCESS_DENIED;
  return kind == PathKind::LocalFolder ? 0 : ERROR_BAD_PATHNAME;
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
  return GetDriveTypeW(drive.c_str()) != DRIVE_REMOTE;
}

FileHandle openDiskFile(const std::wstring& path) {
  if (const DWORD refusal = refusalOf(path); refusal != 0) {
    SetLastError(refusal);
    return {};
  }
  FileHandle file = openForExamination(path, kAnonymous);
  if (!file) return file;
  // A link may have led elsewhere than the name said.
  DWORD refusal = GetFileType(file.get()) != FILE_TYPE_DISK ? ERROR_BAD_FILE_TYPE : 0U;
  if (refusal == 0) refusal = refusalOf(finalPath(file.get()).value_or(std::wstring()));
  if (refusal == 0) return file;
  file.reset();
  SetLastError(refusal);
  return file;
}

FileHandle openBundle(const std::wstring& path) {
  const IoDeadline deadline(kOpenLimit);
  return openDiskFile(path);
}

bool copyBundle(const std::wstring& from, const std::wstring& to, std::int64_t maximumBytes) {
  const IoDeadline deadline(kCopyLimit);
  const std::string target = StringUtils::utf16to8(to);
  // What cannot be removed (a running installer) makes the copy fail, and so does
  // anything that somebody puts there in between.
  FileUtils::removeWhatever(target, true);
  CopyLimits limits{maximumBytes, std::chrono::steady_clock::now() + kCopyLimit};
  if (CopyFileExW(from.c_str(), to.c_str(), limitCopy, &limits, nullptr, COPY_FILE_FAIL_IF_EXISTS) == 0) {
    SetLastError(failureCode(GetLastError()));
    return false;
  }
  // Not every system calls the progress routine.
  if (FileUtils::fileSize(target) <= static_cast<std::uint64_t>(maximumBytes)) return true;
  FileUtils::deleteFile(target, true);
  SetLastError(ERROR_REQUEST_ABORTED);
  return false;
}

FileHandle openStagedCopy(const std::wstring& path) {
  FileHandle file = openForExamination(path, kAnonymous | FILE_FLAG_OPEN_REPARSE_POINT);
  if (!file) return file;
  if (const auto plain = checkPlainFileWithOneName(file.get()); !plain) {
    file.reset();
    SetLastError(plain.error().code());
  }
  return file;
}

}  // namespace zarn
