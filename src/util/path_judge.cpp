#include "util/path_judge.h"

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <memory>
#include <utility>

#include "os/files.h"
#include "os/process.h"
#include "os/text.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/product_names.h"
#include "util/remembered.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

constexpr std::size_t kLongestPathBytes = 32'767;
/// Bounds the walk from a missing folder to one that is there.
constexpr std::size_t kMostComponents = 256;

constexpr bool isSeparator(char c) noexcept {
  return c == '\\' || c == '/';
}

using os::equalsIgnoringCase;
using os::isLetter;

/// Takes the first component off `rest`, passing over the separators before it; empty at the end.
constexpr std::string_view takeComponent(std::string_view& rest) noexcept {
  while (!rest.empty() && isSeparator(rest.front())) rest.remove_prefix(1);
  std::size_t length = 0;
  while (length < rest.size() && !isSeparator(rest[length])) ++length;
  const std::string_view component = rest.substr(0, length);
  rest.remove_prefix(length);
  return component;
}

/// What follows "com" and "lpt" in a device's name: a digit, or one of the superscripts 1 to 3.
constexpr bool isPortNumber(std::string_view text) noexcept {
  return (text.size() == 1 && text[0] >= '0' && text[0] <= '9') || text == "\xC2\xB9" || text == "\xC2\xB2" ||
         text == "\xC2\xB3";
}

/// Whether a component stands for a device wherever it is: the name counts up to the
/// first dot or colon, and blanks at its end do not.
constexpr bool isReservedName(std::string_view component) noexcept {
  std::string_view name = component.substr(0, component.find_first_of(".:"));
  while (name.ends_with(' ')) name.remove_suffix(1);
  constexpr std::array<std::string_view, 7> devices = {"nul",    "con",     "aux",   "prn",
                                                       "conin$", "conout$", "clock$"};
  if (std::any_of(devices.begin(), devices.end(),
                  [&](auto device) { return equalsIgnoringCase(name, device); }))
    return true;
  const std::string_view port = name.substr(0, 3);
  return (equalsIgnoringCase(port, "com") || equalsIgnoringCase(port, "lpt")) &&
         isPortNumber(name.substr(port.size()));
}

constexpr bool isDots(std::string_view component) noexcept {
  return component == "." || component == "..";
}

/// Whether the system takes the component as it is: no stream, no wildcard, and no
/// end that is cut off in one spelling of a path and kept in another.
constexpr bool isPlainName(std::string_view component) noexcept {
  const bool isCut = component.ends_with('.') || component.ends_with(' ');
  return !isCut && component.find_first_of(":<>\"|?*") == std::string_view::npos;
}

/// `literal`: behind "\\?\", where "." and ".." are names like others.
PathKind judgeComponents(std::string_view rest, bool literal, PathKind kind) noexcept {
  std::size_t count = 0;
  for (auto component = takeComponent(rest); !component.empty(); component = takeComponent(rest)) {
    const bool isGood = isPlainName(component) || (isDots(component) && !literal);
    if (!isGood || ++count > kMostComponents) return PathKind::Malformed;
  }
  return kind;
}

/// `rest` begins with the host's name.
PathKind judgeShare(std::string_view rest, bool literal) noexcept {
  std::string_view tail = rest;
  const std::string_view host = takeComponent(tail);
  const std::string_view share = takeComponent(tail);
  if (host == "." || host == "?" || equalsIgnoringCase(share, "pipe") || equalsIgnoringCase(share, "ipc$") ||
      equalsIgnoringCase(share, "mailslot"))
    return PathKind::Device;
  if (isDots(host) || isDots(share)) return PathKind::Malformed;
  return judgeComponents(rest, literal, PathKind::Share);
}

bool beginsWithDrive(std::string_view path) noexcept {
  return path.size() > 2 && isLetter(path[0]) && path[1] == ':' && isSeparator(path[2]);
}

/// Behind "\\?\".
PathKind judgeLiteral(std::string_view rest) noexcept {
  if (beginsWithDrive(rest)) return judgeComponents(rest.substr(2), true, PathKind::LocalFolder);
  if (rest.size() > 4 && equalsIgnoringCase(rest.substr(0, 3), "UNC") && isSeparator(rest[3]))
    return judgeShare(rest.substr(4), true);
  return PathKind::Device;
}

bool hasReservedName(std::string_view path) noexcept {
  for (auto component = takeComponent(path); !component.empty(); component = takeComponent(path)) {
    if (isReservedName(component)) return true;
  }
  return false;
}

/// The second of the characters may be "?": "\\?\" and "\??\".
bool beginsWith(std::string_view path, std::string_view wanted) noexcept {
  return path.size() >= wanted.size() &&
         std::equal(wanted.begin(), wanted.end(), path.begin(),
                    [](char w, char c) { return w == '\\' ? isSeparator(c) : w == c; });
}

}  // namespace

std::string_view describe(PathKind kind) noexcept {
  switch (kind) {
    case PathKind::LocalFolder:
      return "a folder on a drive";
    case PathKind::Share:
      return "a share";
    case PathKind::Device:
      return "a device";
    case PathKind::Relative:
      return "no full path";
    case PathKind::Malformed:
      return "no name of a folder";
    case PathKind::OwnPlace:
      return "a place of the service's own";
    case PathKind::Unreachable:
      return "out of reach";
  }
  return "of no known kind";
}

PathKind judgePath(std::string_view path) noexcept {
  const bool hasControls = std::any_of(path.begin(), path.end(), [](char c) { return c >= '\0' && c < ' '; });
  if (path.size() > kLongestPathBytes || hasControls) return PathKind::Malformed;
  if (hasReservedName(path) || beginsWith(path, R"(\??\)")) return PathKind::Device;
  if (beginsWith(path, R"(\\.\)")) return PathKind::Device;
  if (beginsWith(path, R"(\\?\)")) return judgeLiteral(path.substr(4));
  if (beginsWith(path, R"(\\)")) return judgeShare(path, false);
  if (beginsWithDrive(path)) return judgeComponents(path.substr(2), false, PathKind::LocalFolder);
  return PathKind::Relative;
}

std::string resolveDots(std::string_view localFolder) {
  if (beginsWith(localFolder, R"(\\?\)")) localFolder.remove_prefix(4);
  std::string result = R"(\\?\)";
  result += localFolder.substr(0, 2);
  const std::size_t root = result.size();
  std::string_view rest = localFolder.substr(2);
  for (auto component = takeComponent(rest); !component.empty(); component = takeComponent(rest)) {
    if (component == ".") continue;
    if (component == "..") {
      result.resize(std::max(root, std::min(result.rfind('\\'), result.size())));
    } else {
      result.append("\\").append(component);
    }
  }
  if (result.size() == root) result += '\\';
  return result;
}

bool isUsable(PathKind kind) {
  if (kind != PathKind::Share) return kind == PathKind::LocalFolder;
  return environmentVariable(names::kAllowSharesVariable.narrow) == "1";
}

bool liesIn(std::string_view realPath, const std::vector<std::string>& folders) {
  return std::any_of(folders.begin(), folders.end(), [&](std::string_view folder) {
    if (folder.empty()) return false;
    std::string_view rest = realPath;
    for (auto wanted = takeComponent(folder); !wanted.empty(); wanted = takeComponent(folder)) {
      if (!equalsIgnoringCase(takeComponent(rest), wanted)) return false;
    }
    return true;
  });
}

namespace {

std::string below(std::string folder, std::string_view name) {
  if (!folder.ends_with('\\')) folder += '\\';
  return folder.append(name);
}

std::string recordFolder() {
  const auto folder = os::machineDataFolder();
  return folder ? below(*folder, names::kRecordFolder.narrow) : std::string();
}

std::string temporaryFolder() {
  boost::system::error_code error;
  const auto folder = boost::filesystem::temp_directory_path(error);
  return error ? std::string() : os::utf8FromPath(folder).value_or(std::string());
}

/// Of a local folder's path with its dots resolved.
PathKind judgeRealPath(const std::string& path, const std::vector<std::string>& ownFolders) {
  const auto real = os::realPath(below(below(path, names::kProductFolder.narrow), names::kLogs.narrow));
  if (!real || real->empty()) return PathKind::Unreachable;
  if (real->starts_with(R"(\\?\UNC\)")) return PathKind::Share;
  return liesIn(*real, ownFolders) ? PathKind::OwnPlace : PathKind::LocalFolder;
}

}  // namespace

PathKind judgeAppDataPath(std::string_view path, const std::vector<std::string>& ownFolders) {
  // The native build takes every path: it serves no callers.
  if (!os::kPathsNameDrives) return PathKind::LocalFolder;
  const PathKind kind = judgePath(path);
  if (kind != PathKind::LocalFolder) return kind;
  const std::string resolved = resolveDots(path);
  if (StringUtils::utf8to16(resolved).empty()) return PathKind::Malformed;  // no UTF-8
  const IoDeadline deadline(kOpenLimit);
  return os::isOnNetworkDrive(resolved) ? PathKind::Share : judgeRealPath(resolved, ownFolders);
}

std::vector<std::string> ownFoldersOf(const std::string& program) {
  const IoDeadline deadline(kOpenLimit);
  std::string programFolder = program.substr(0, program.find_last_of("\\/"));
  if (programFolder.ends_with(':')) programFolder += '\\';  // the drive's root, and not its current folder
  std::vector<std::string> result;
  for (const std::string& folder : {programFolder, temporaryFolder(), recordFolder()}) {
    if (judgePath(folder) != PathKind::LocalFolder) continue;
    const std::string asNamed = resolveDots(folder);
    result.push_back(os::realPath(asNamed).value_or(asNamed));
  }
  return result;
}

std::string programPath() {
  static Remembered& known = *std::make_unique<Remembered>().release();
  auto program = known.orLast(os::executablePath());
  if (!program) logFatal("GetModuleFileNameW failed: %d", program.error().reported());
  return std::move(*program);
}

std::vector<std::string> ownFolders() {
  return ownFoldersOf(programPath());
}

}  // namespace zarn
