#include "util/held_folder.h"

#include <utility>
#include <vector>

#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/path_judge.h"
#include "util/printable.h"
#include "util/system_error.h"

namespace zarn::FileUtils {
namespace {

/// Deeper trees stay: each level costs a handle and a piece of the stack.
constexpr unsigned kDeepestTree = 200;

/// Whether a name can be no path: no separator, no stream, no step up.
bool isOneComponent(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("\\/:\0", 4)) == std::string_view::npos;
}

}  // namespace

HeldFolder HeldFolder::hold(std::string_view path, Links links, OwnPlaces ownPlaces) {
  const IoDeadline deadline(kOpenLimit);
  HeldFolder folder = holdPath(path, links);
  if (!folder || ownPlaces == OwnPlaces::Allow || isBelowOverride(path)) return folder;
  // What its name led to may have changed since it was judged.
  const bool isRefused = judgePath(folder.path()) == PathKind::Share ? !isUsable(PathKind::Share)
                                                                     : liesIn(folder.path(), ownFolders());
  return isRefused ? HeldFolder(kRefused) : std::move(folder);
}

HeldFolder HeldFolder::folder(std::string_view name, Existing existing) const {
  if (!isOneComponent(name)) return HeldFolder(kInvalidName);
  const IoDeadline deadline(kLogFileLimit);
  return holdName(toPath(name).native(), existing);
}

ScopedFile HeldFolder::create(std::string_view name, std::uint32_t& error) const {
  error = kInvalidName;
  if (!isOneComponent(name)) return nullptr;
  const IoDeadline deadline(kLogFileLimit);
  return openName(toPath(name).native(), "wb", Existing::Never, error);
}

ScopedFile HeldFolder::open(std::string_view name, const char* mode, Existing existing) const {
  ScopedFile file;
  std::uint32_t error = kInvalidName;
  if (isOneComponent(name)) {
    const IoDeadline deadline(kLogFileLimit);
    file = openName(toPath(name).native(), mode, existing, error);
  }
  if (file) return file;
  logLine(LogLevel::Error, "safe_fopen: CreateFileW for '%s' failed: %d", printable(pathOf(name)), error);
  setLastSystemError(error);
  return nullptr;
}

bool HeldFolder::exists(std::string_view name) const {
  const IoDeadline deadline(kLogFileLimit);
  return isOneComponent(name) && findName(toPath(name).native()) == 0;
}

bool HeldFolder::rename(std::string_view from, std::string_view to) const {
  std::uint32_t error = kInvalidName;
  if (isOneComponent(from) && isOneComponent(to)) {
    const IoDeadline deadline(kLogFileLimit);
    error = renameName(toPath(from).native(), toPath(to).native());
  }
  if (error == 0) return true;
  logLine(LogLevel::Error, "Couldn't copy file %s to %s: %s", printable(pathOf(from)), printable(pathOf(to)),
          systemErrorPhrase(error));
  return false;
}

std::uint32_t HeldFolder::tryRemove(std::string_view name) const {
  if (!isOneComponent(name)) return kInvalidName;
  const IoDeadline deadline(kLogFileLimit);
  const std::uint32_t error = removeName(toPath(name).native());
  return isMissing(error) ? 0 : error;
}

bool HeldFolder::remove(std::string_view name) const {
  const std::uint32_t error = tryRemove(name);
  if (error == 0) return true;
  logLine(LogLevel::Error, "Couldn't delete the file %s: %s", printable(pathOf(name)),
          systemErrorPhrase(error));
  return false;
}

std::uint32_t HeldFolder::removeTree(std::string_view name) const {
  if (!isOneComponent(name)) return kInvalidName;
  const IoDeadline deadline(kOpenLimit);
  return removeTree(toPath(name).native(), 0);
}

std::uint32_t HeldFolder::removeTree(const Name& name, unsigned depth) const {
  std::uint32_t error = removeName(name);
  if (error == 0 || isMissing(error)) return 0;
  if (!isNotEmpty(error) || depth == kDeepestTree) return error;
  {
    const HeldFolder folder = holdName(name, Existing::Only);
    if (!folder) return folder.error();
    // Listed first: what is removed while a folder is read may be passed over.
    std::vector<Name> names;
    error = folder.listNames([&](const FolderEntry& entry) { names.push_back(entry.name.native()); });
    for (const Name& found : names) {
      if (error == 0) error = folder.removeTree(found, depth + 1);
    }
    if (error != 0) return error;
  }
  error = removeName(name);
  return isMissing(error) ? 0 : error;
}

std::uint32_t HeldFolder::list(const std::function<void(const FolderEntry&)>& visit) const {
  const IoDeadline deadline(kLogFileLimit);
  return listNames(visit);
}

bool removeWhatever(std::string_view path, bool quiet) {
  if (path.empty()) return true;
  const boost::filesystem::path target = toPath(path);
  const HeldFolder parent = HeldFolder::hold(toUtf8(target.parent_path()), Links::Follow, OwnPlaces::Allow);
  const std::uint32_t error = parent ? parent.removeTree(toUtf8(target.filename())) : parent.error();
  if (error == 0 || HeldFolder::isMissing(error)) return true;
  if (!quiet)
    logLine(LogLevel::Error, "Couldn't delete the file %s: %s", printable(path), systemErrorPhrase(error));
  return false;
}

}  // namespace zarn::FileUtils
