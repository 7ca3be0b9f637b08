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
#include "util/printable.h"
#include "util/product_names.h"

namespace zarn::tool {
namespace {

/// Of the requests for which an installer ran, then the others; the newest file first.
constexpr std::array<std::array<const char*, 2>, 2> kRecordFiles = {
    {{names::kHistory.narrow, names::kEarlierHistory.narrow},
     {names::kRefused.narrow, names::kEarlierRefused.narrow}}};

/// Of each file: all that a record folder keeps, with room for files that somebody has kept
/// from being renamed.
constexpr std::int64_t kMostRecordBytes = std::int64_t{64} << 20;

bool isUsualFile(std::string_view name) {
  return std::ranges::any_of(
      kRecordFiles, [&](const auto& files) { return std::ranges::find(files, name) != files.end(); });
}

/// Of a file that has one record.
constexpr std::int64_t kMostSingleBytes = std::int64_t{1} << 20;

/// Requests of others that may have ended since one's own did.
constexpr std::size_t kMostSinceACall = 200;

/// Opens the files of one folder to read them from their ends, and keeps what that says of
/// all of them.
class RecordOpener {
 public:
  explicit RecordOpener(const std::string& folder)
      : folder_(FileUtils::HeldFolder::hold(folder, FileUtils::Links::Follow, FileUtils::OwnPlaces::Allow)) {}

  /// A sequence of the files that are there and can be read.
  RecordSequence open(const std::array<const char*, 2>& names) {
    RecordSequence files;
    for (const char* const name : names) {
      auto opened = folder_ ? folder_->open(name, "rb") : Result<os::ScopedFile>(failure(folder_.error()));
      if (isRead(opened)) files.push_back(linesFromEnd(std::move(*opened), kMostRecordBytes));
    }
    return files;
  }

  /// The files that are none of the usual ones, each a sequence of its own. They are read at
  /// once, since there may be more of them than can be open at a time.
  void addSingles(std::vector<RecordSequence>& sequences) {
    if (!folder_) return;
    for (const std::string& name : filesIn(*folder_).value_or(std::vector<std::string>())) {
      if (isUsualFile(name) || !isRecordFile(name)) continue;
      auto end = readEnd(*folder_, name, kMostSingleBytes);
      if (isRead(end)) sequences.emplace_back().push_back(linesFromEnd(std::move(*end)));
    }
  }

  /// The whole, of which `history` is what could be read.
  Result<History> conclude(History history) const {
    if (!foundAny_) return failure(unread_.value_or(SystemError(ERROR_FILE_NOT_FOUND)));
    if (unread_) history.unread = unread_;
    return history;
  }

 private:
  template <typename T>
  bool isRead(const Result<T>& file) {
    if (file) foundAny_ = true;
    if (!file && !file.error().isNotFound()) unread_ = file.error();
    return file.has_value();
  }

  Result<FileUtils::HeldFolder> folder_;
  bool foundAny_ = false;
  std::optional<SystemError> unread_;
};

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

Result<History> readHistory(const RecordSource& source, const HistoryWish& wish) {
  if (!source.usable) return failure(source.usable.error());
  RecordOpener opener(source.folder);
  std::vector<RecordSequence> sequences;
  sequences.reserve(kRecordFiles.size());
  for (const auto& names : kRecordFiles) sequences.push_back(opener.open(names));
  opener.addSingles(sequences);
  return opener.conclude(newestRequests(std::move(sequences), wish));
}

OwnRequest findOwnRequest(const RecordSource& source, const std::string& path, const std::string& begin,
                          Status status) {
  auto history = readHistory(source, {kMostSinceACall, false, begin});
  if (!history) return {{}, recordProblem(history.error())};
  const auto isOwn = [&](const InstallRecord& record) {
    return record.caller.processId == GetCurrentProcessId() && record.status == status &&
           record.path == cutText(path, kLongestRecordedText);
  };
  const auto own = std::find_if(history->records.rbegin(), history->records.rend(), isOwn);
  if (own == history->records.rend()) return {{}, "it has no such request"};
  return {std::move(*own), {}};
}

}  // namespace zarn::tool
