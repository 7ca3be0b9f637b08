#include "util/held_folder.h"

#include <utility>
#include <vector>

#include "os/error_text.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/path_judge.h"
#include "util/printable.h"

namespace zarn::FileUtils {
namespace {

/// Deeper trees stay: each level costs a handle and a piece of the stack.
constexpr unsigned kDeepestTree = 200;

using Name = os::Folder::Name;

/// The name in the system's encoding, when it can be no path: it holds no separator, no
/// stream and no step up.
Result<Name> componentOf(std::string_view name) {
  const bool isOne = !name.empty() && name != "." && name != ".." &&
                     name.find_first_of(std::string_view("\\/:\0", 4)) == std::string_view::npos;
  if (!isOne) return failure(SystemError::invalidName());
  return toPath(name).native();
}

/// What stopped the C library has a number of its own, which is no code of the system.
SystemError systemErrorOf(const os::OpenFailure& reason) {
  constexpr std::uint32_t generalFailure = 0;
  return SystemError(reason.step == os::OpenFailure::Step::Open ? reason.code : generalFailure);
}

/// What is gone already counts as removed.
Result<void> unlessMissing(const Result<void>& removed) {
  return !removed && removed.error().isNotFound() ? Result<void>() : removed;
}

Result<void> removeTree(const os::Folder& parent, const Name& name, unsigned depth) {
  const auto removed = unlessMissing(parent.remove(name));
  if (removed || !removed.error().isNotEmpty() || depth == kDeepestTree) return removed;
  {
    // The folder's handle is closed before the folder itself is removed.
    const auto folder = parent.folder(name, Existing::Only);
    if (!folder) return failure(folder.error());
    // Listed first: what is removed while a folder is read may be passed over.
    std::vector<Name> names;
    const auto listed = folder->list([&](const FolderEntry& entry) { names.push_back(entry.name.native()); });
    if (!listed) return listed;
    for (const Name& found : names) {
      const auto below = removeTree(*folder, found, depth + 1);
      if (!below) return below;
    }
  }
  return unlessMissing(parent.remove(name));
}

}  // namespace

Result<HeldFolder> HeldFolder::hold(std::string_view path, Links links, OwnPlaces ownPlaces) {
  const IoDeadline deadline(kOpenLimit);
  auto folder = os::Folder::open(toPath(path), links);
  if (!folder) return failure(folder.error());
  HeldFolder held(std::move(*folder));
  if (ownPlaces == OwnPlaces::Allow || isBelowOverride(path)) return held;
  // What its name led to may have changed since it was judged.
  const bool isRefused = judgePath(held.path()) == PathKind::Share ? !isUsable(PathKind::Share)
                                                                   : liesIn(held.path(), ownFolders());
  if (isRefused) return failure(SystemError::accessDenied());
  return held;
}

Result<HeldFolder> HeldFolder::folder(std::string_view name, Existing existing) const {
  const auto component = componentOf(name);
  if (!component) return failure(component.error());
  const IoDeadline deadline(kLogFileLimit);
  auto found = folder_.folder(*component, existing);
  if (!found) return failure(found.error());
  return HeldFolder(std::move(*found));
}

// Never an existing file: what stands at the name may be a link of somebody else's making.
Result<ScopedFile> HeldFolder::create(std::string_view name) const {
  const auto component = componentOf(name);
  if (!component) return failure(component.error());
  const IoDeadline deadline(kLogFileLimit);
  auto file = folder_.file(*component, "wb", Existing::Never);
  if (file) return std::move(*file);
  // What keeps the whole process from opening files is nothing that a caller expects.
  if (file.error().step != os::OpenFailure::Step::Open) logOpenFailure(pathOf(name), file.error());
  return failure(systemErrorOf(file.error()));
}

Result<ScopedFile> HeldFolder::open(std::string_view name, const char* mode, Existing existing) const {
  // The reason stays what it is here when the name is no component.
  const auto component = componentOf(name);
  os::OpenFailure reason{os::OpenFailure::Step::Open, SystemError::invalidName().code()};
  if (component) {
    const IoDeadline deadline(kLogFileLimit);
    auto file = folder_.file(*component, mode, existing);
    if (file) return std::move(*file);
    reason = file.error();
  }
  logOpenFailure(pathOf(name), reason);
  return failure(systemErrorOf(reason));
}

Result<void> HeldFolder::find(std::string_view name) const {
  const auto component = componentOf(name);
  if (!component) return failure(component.error());
  const IoDeadline deadline(kLogFileLimit);
  return folder_.find(*component);
}

bool HeldFolder::exists(std::string_view name) const {
  return find(name).has_value();
}

bool HeldFolder::rename(std::string_view from, std::string_view to) const {
  const auto source = componentOf(from);
  const auto target = componentOf(to);
  Result<void> moved = failure(SystemError::invalidName());
  if (source && target) {
    const IoDeadline deadline(kLogFileLimit);
    moved = folder_.rename(*source, *target);
  }
  if (moved) return true;
  logLine(LogLevel::Error, "Couldn't copy file %s to %s: %s", printable(pathOf(from)), printable(pathOf(to)),
          systemErrorPhrase(moved.error()));
  return false;
}

Result<void> HeldFolder::tryRemove(std::string_view name) const {
  const auto component = componentOf(name);
  if (!component) return failure(component.error());
  const IoDeadline deadline(kLogFileLimit);
  return unlessMissing(folder_.remove(*component));
}

bool HeldFolder::remove(std::string_view name) const {
  const auto removed = tryRemove(name);
  if (removed) return true;
  logLine(LogLevel::Error, "Couldn't delete the file %s: %s", printable(pathOf(name)),
          systemErrorPhrase(removed.error()));
  return false;
}

Result<void> HeldFolder::removeTree(std::string_view name) const {
  const auto component = componentOf(name);
  if (!component) return failure(component.error());
  const IoDeadline deadline(kOpenLimit);
  return FileUtils::removeTree(folder_, *component, 0);
}

Result<void> HeldFolder::list(const std::function<void(const FolderEntry&)>& visit) const {
  const IoDeadline deadline(kLogFileLimit);
  return folder_.list(visit);
}

bool removeWhatever(std::string_view path, bool quiet) {
  if (path.empty()) return true;
  // By the parent's handle and a name, as everything else here: no link is followed.
  const boost::filesystem::path target = toPath(path);
  const auto parent = HeldFolder::hold(toUtf8(target.parent_path()), Links::Follow, OwnPlaces::Allow);
  const auto removed = unlessMissing(parent ? parent->removeTree(toUtf8(target.filename()))
                                            : Result<void>(failure(parent.error())));
  if (removed) return true;
  if (!quiet)
    logLine(LogLevel::Error, "Couldn't delete the file %s: %s", printable(path),
            systemErrorPhrase(removed.error()));
  return false;
}

}  // namespace zarn::FileUtils
