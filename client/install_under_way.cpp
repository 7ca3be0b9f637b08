#include "client/install_under_way.h"

#include <windows.h>

#include <cstdio>

#include "os/folder.h"
#include "update/record_place.h"
#include "util/product_names.h"

namespace zarn::client {
namespace {

/// More than the service writes there, however its path is escaped.
constexpr std::size_t kMostInstallingBytes = std::size_t{64} << 10;

/// What only its last reader keeps: there is nothing in our folder that any user is denied.
bool isBeingDeleted(SystemError error) {
  return error == SystemError::accessDenied() || error.code() == ERROR_DELETE_PENDING;
}

zarn::Result<os::Folder> holdTrusted(const std::string& folder) {
  const auto usable = checkRecordFolder(folder);
  if (!usable) return failure(usable.error());
  const auto path = os::pathFromUtf8(folder);
  if (!path) return failure(path.error());
  return os::Folder::open(*path, os::Links::Refuse);
}

/// Empty when it cannot be read: any user may read the file, and so keep others from it.
std::string readInstalling(const os::Folder& folder) {
  const auto file = folder.file(names::kInstalling.wide, "rb", os::Existing::Only);
  std::string text(file ? kMostInstallingBytes : 0, '\0');
  if (file) text.resize(std::fread(text.data(), 1, text.size(), file->get()));
  return text;
}

}  // namespace

zarn::Result<std::optional<InstallUnderWay>> installUnderWay(const std::string& folder,
                                                             const zarn::Result<std::uint32_t>& process) {
  using Found = std::optional<InstallUnderWay>;
  // Whatever stands there then, nobody is working.
  if (!isUnderWay({}, process)) return Found();
  if (folder.empty()) return failure(SystemError::invalidName());
  const auto held = holdTrusted(folder);
  const auto there = held ? held->find(names::kInstalling.wide) : zarn::Result<void>(failure(held.error()));
  if (!there && (there.error().isNotFound() || (held && isBeingDeleted(there.error())))) return Found();
  if (!there) return failure(there.error());
  InstallUnderWay shown = parseInstalling(readInstalling(*held));
  return isUnderWay(shown, process) ? Found(std::move(shown)) : Found();
}

}  // namespace zarn::client
