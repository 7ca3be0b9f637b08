#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>

#include "util/file_utils.h"
#include "util/file_utils_platform.h"
#include "util/io_deadline.h"
#include "util/path_judge.h"
#include "util/product_names.h"
#include "util/string_utils.h"
#include "util/windows_handles.h"

namespace zarn {
namespace {

constexpr std::string_view kLiteral = R"(\\?\)";
constexpr std::string_view kLiteralShare = R"(\\?\UNC\)";

/// `path` as resolveDots() gives it.
bool isOnNetworkDrive(const std::wstring& path) {
  return GetDriveTypeW((path.substr(kLiteral.size(), 2) + L'\\').c_str()) == DRIVE_REMOTE;
}

/// Where `path`, a local folder's, really lies: the final path of the deepest folder on
/// the way that is there, and the rest behind it. Empty when the system gives another
/// reason than a missing folder for not opening one.
std::wstring realPath(std::wstring path) {
  const std::size_t root = kLiteral.size() + 3;
  std::wstring rest;
  for (;;) {
    // Attributes alone: no right to read is needed, and nobody's lock is in the way.
    const FileHandle folder(CreateFileW(
        path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, nullptr));
    if (folder) {
      const std::wstring real = finalPath(folder.get());
      return real.empty() ? real : real + rest;
    }
    const DWORD error = GetLastError();
    const bool isMissing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    if (!isMissing || path.size() <= root) return {};
    const std::size_t cut = path.rfind(L'\\');
    rest.insert(0, path, cut);
    path.resize(std::max(cut, root));
  }
}

std::string realPath(const std::string& path) {
  return StringUtils::utf16to8(realPath(StringUtils::utf8to16(path)));
}

std::string recordFolder() {
  wchar_t folder[MAX_PATH] = {};
  if (SHGetSpecialFolderPathW(nullptr, folder, CSIDL_COMMON_APPDATA, FALSE) == FALSE) return {};
  return FileUtils::join(StringUtils::utf16to8(folder), names::kRecordFolder.narrow);
}

std::string temporaryFolder() {
  boost::system::error_code error;
  const auto folder = boost::filesystem::temp_directory_path(error);
  return error ? std::string() : FileUtils::toUtf8(folder);
}

PathKind judgeRealPath(const std::string& path, const std::vector<std::string>& ownFolders) {
  const std::string logs =
      FileUtils::join(FileUtils::join(resolveDots(path), names::kProductFolder.narrow), names::kLogs.narrow);
  const std::string real = realPath(logs);
  if (real.empty()) return PathKind::Unreachable;
  if (real.starts_with(kLiteralShare)) return PathKind::Share;
  return liesIn(real, ownFolders) ? PathKind::OwnPlace : PathKind::LocalFolder;
}

}  // namespace

PathKind judgeAppDataPath(std::string_view path, const std::vector<std::string>& ownFolders) {
  const PathKind kind = judgePath(path);
  if (kind != PathKind::LocalFolder) return kind;
  const std::wstring wide = StringUtils::utf8to16(resolveDots(path));
  if (wide.empty()) return PathKind::Malformed;  // no UTF-8
  const IoDeadline deadline(kOpenLimit);
  return isOnNetworkDrive(wide) ? PathKind::Share : judgeRealPath(std::string(path), ownFolders);
}

std::vector<std::string> ownFoldersOf(const std::string& program) {
  const IoDeadline deadline(kOpenLimit);
  const std::string programFolder = FileUtils::toUtf8(FileUtils::toPath(program).parent_path());
  std::vector<std::string> result;
  for (const std::string& folder : {programFolder, temporaryFolder(), recordFolder()}) {
    if (judgePath(folder) != PathKind::LocalFolder) continue;
    const std::string asNamed = resolveDots(folder);
    const std::string real = realPath(asNamed);
    result.push_back(real.empty() ? asNamed : real);
  }
  return result;
}

std::vector<std::string> ownFolders() {
  return ownFoldersOf(FileUtils::platform::executablePath());
}

}  // namespace zarn
