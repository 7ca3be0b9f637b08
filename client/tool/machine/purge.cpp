#include "client/tool/machine/purge.h"

#include <windows.h>

#include <string_view>

#include "client/tool/machine/record.h"
#include "update/record_folder.h"
#include "util/held_folder.h"
#include "util/product_names.h"

namespace zarn::tool {
namespace {

using FileUtils::HeldFolder;

bool isOfRecord(std::string_view name) {
  return isRecordFile(name) || name == names::kInstalling.narrow;
}

/// Only a folder that is empty.
void removeFolder(const std::string& path) {
  RemoveDirectoryW(FileUtils::toPath(path).c_str());
}

class Purge {
 public:
  void logsBelow(const std::string& applicationData) {
    const std::string path = FileUtils::join(applicationData, names::kProductFolder.narrow);
    {
      const auto product = HeldFolder::hold(path, FileUtils::Links::Refuse, FileUtils::OwnPlaces::Allow);
      // The media server may keep its own files there: only empty folders go.
      if (!isThere(product, path)) return;
      if (logsIn(*product)) static_cast<void>(product->tryRemove(names::kLogs.narrow));
    }
    removeFolder(path);
  }

  void record(const std::string& path) {
    // What others may have put there is not the service's to delete.
    if (!checkRecordFolder(path)) return;
    {
      const auto folder = HeldFolder::hold(path, FileUtils::Links::Refuse, FileUtils::OwnPlaces::Allow);
      if (!isThere(folder, path)) return;
      files(*folder, isOfRecord);
    }
    removeFolder(path);
  }

  Purged result;

 private:
  /// Notes a folder that is there, but is a link or cannot be held.
  bool isThere(const Result<HeldFolder>& folder, const std::string& path) {
    if (!folder && !folder.error().isNotFound()) result.left.emplace_back(path, folder.error());
    return folder.has_value();
  }

  /// Whether there is such a folder. Lets go of it, so that it can be removed.
  bool logsIn(const HeldFolder& product) {
    const auto logs = product.folder(names::kLogs.narrow);
    if (!isThere(logs, product.pathOf(names::kLogs.narrow))) return false;
    bool hasInstallerLogs = false;
    {
      const auto installers = logs->folder(names::kInstallerLogs.narrow);
      hasInstallerLogs = isThere(installers, logs->pathOf(names::kInstallerLogs.narrow));
      if (hasInstallerLogs) files(*installers, isInstallerLogName<char>);
    }
    files(*logs, isServiceLogName<char>);
    if (hasInstallerLogs) static_cast<void>(logs->tryRemove(names::kInstallerLogs.narrow));
    return true;
  }

  void files(const HeldFolder& folder, bool (*isWanted)(std::string_view)) {
    // Listed first: what is removed while a folder is read may be passed over.
    std::vector<std::string> found;
    const auto listed = folder.list([&](const FileUtils::FolderEntry& entry) {
      std::string name = FileUtils::toUtf8(entry.name);
      if (!entry.isFolder && isWanted(name)) found.push_back(std::move(name));
    });
    if (!listed) result.left.emplace_back(folder.path(), listed.error());
    for (const std::string& name : found) {
      const auto removed = folder.tryRemove(name);
      if (removed)
        result.files.push_back(folder.pathOf(name));
      else
        result.left.emplace_back(folder.pathOf(name), removed.error());
    }
  }
};

}  // namespace

Purged purgeLogs(const std::vector<std::string>& applicationData, const std::string& recordFolder) {
  Purge purge;
  for (const std::string& folder : applicationData) purge.logsBelow(folder);
  if (!recordFolder.empty()) purge.record(recordFolder);
  return std::move(purge.result);
}

}  // namespace zarn::tool
