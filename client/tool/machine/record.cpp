#include "client/tool/machine/record.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "client/install_under_way.h"
#include "client/tool/machine/files.h"
#include "client/tool/report/waiting.h"
#include "update/record_folder.h"
#include "util/file_utils.h"
#include "util/io_deadline.h"
#include "util/product_names.h"

namespace zarn::tool {
namespace {

/// Of the requests for which an installer ran, then the others; the earlier file first.
constexpr std::array<const char*, 4> kRecordFiles = {names::kEarlierHistory.narrow, names::kHistory.narrow,
                                                     names::kEarlierRefused.narrow, names::kRefused.narrow};

bool isUsualFile(std::string_view name) {
  return std::ranges::find(kRecordFiles, name) != kRecordFiles.end();
}

/// Reads files of one folder, and keeps what that says of all of them.
class RecordReader {
 public:
  RecordReader(std::string folder, std::int64_t maximumBytes)
      : folder_(std::move(folder)), maximumBytes_(maximumBytes) {}

  /// What a file has; nothing of one that is missing or cannot be read.
  History read(const std::string& name) {
    const auto end = readEnd(folder_, name, maximumBytes_);
    if (end) {
      foundAny_ = true;
      return parseHistory(end->bytes, end->isCut);
    }
    if (!end.error().isNotFound()) unread_ = end.error();
    return {};
  }

  /// The whole, of which `history` is what could be read.
  Result<History> conclude(History history) const {
    if (!foundAny_) return failure(unread_.value_or(SystemError(ERROR_FILE_NOT_FOUND)));
    history.unread = unread_;
    return history;
  }

 private:
  std::string folder_;
  std::int64_t maximumBytes_;
  bool foundAny_ = false;
  std::optional<SystemError> unread_;
};

/// The files that are none of the usual ones.
std::vector<std::string> singleRecordsIn(const std::string& folder) {
  const auto held =
      FileUtils::HeldFolder::hold(folder, FileUtils::Links::Follow, FileUtils::OwnPlaces::Allow);
  if (!held) return {};
  std::vector<std::string> names = filesIn(*held).value_or(std::vector<std::string>());
  std::erase_if(names, [](const std::string& name) { return isUsualFile(name) || !isRecordFile(name); });
  return names;
}

}  // namespace

bool isRecordFile(std::string_view name) {
  return isUsualFile(name) || (name.starts_with("Update History.") && name.ends_with(".jsonl"));
}

RecordSource recordSource(const std::string& given) {
  if (!given.empty()) {
    const std::string collected = FileUtils::join(given, names::kCollectedRecord.narrow);
    return {mayBeFolder(collected) ? collected : given, {}, true};
  }
  RecordSource source{recordFolderPath(), {}, false};
  source.usable = checkRecordFolder(source.folder);
  if (!source.usable && source.usable.error().isNotFound()) source.usable = {};
  return source;
}

Result<std::optional<InstallUnderWay>> installUnderWay(const std::string& folder,
                                                       const Result<ServiceFacts>& service) {
  const IoDeadline deadline(kOpenLimit);
  return client::installUnderWay(folder, processOf(service));
}

Result<History> readHistory(const RecordSource& source, std::int64_t maximumBytes) {
  if (!source.usable) return failure(source.usable.error());
  RecordReader reader(source.folder, maximumBytes);
  History ran;
  History refused;
  // Two files that follow one another are one sequence, whatever their times say; only
  // sequences that were written side by side are merged.
  for (std::size_t i = 0; i < kRecordFiles.size(); ++i) {
    append(i < kRecordFiles.size() / 2 ? ran : refused, reader.read(kRecordFiles.at(i)));
  }
  History all = mergeByTime(std::move(ran), std::move(refused));
  for (const std::string& name : singleRecordsIn(source.folder)) {
    all = mergeByTime(std::move(all), reader.read(name));
  }
  return reader.conclude(std::move(all));
}

}  // namespace zarn::tool
