#include "client/tool/history_files_win.h"

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "client/tool/files_win.h"
#include "os/error_text.h"
#include "update/record_folder.h"
#include "util/file_utils.h"

namespace zarn::tool {
namespace {

/// Adds a file's records to `history`; true when the file is there and could be read.
bool add(StoredHistory& stored, History& history, const std::string& folder, const char* name,
         std::int64_t maximumBytes) {
  const FileEnd read = readEnd(folder, name, maximumBytes);
  if (isMissing(read.error)) return false;
  if (read.error != 0) stored.error = read.error;
  History records = parseHistory(read.bytes);
  // The first line of what was read may have lost its beginning.
  if (read.cut && records.skipped > 0) --records.skipped;
  stored.cut = stored.cut || read.cut;
  history.skipped += records.skipped;
  std::move(records.records.begin(), records.records.end(), std::back_inserter(history.records));
  return read.error == 0;
}

bool isUsualFile(std::string_view name) {
  return std::ranges::any_of(kRecordFiles, [&](const char* one) { return name == one; });
}

}  // namespace

bool isRecordFile(std::string_view name) {
  return isUsualFile(name) || (name.starts_with("Update History.") && name.ends_with(".jsonl"));
}

RecordSource recordSource(const std::string& given) {
  if (!given.empty()) {
    std::string collected = FileUtils::join(given, names::kCollectedRecord.narrow);
    return {mayBeFolder(collected) ? std::move(collected) : given, 0};
  }
  RecordSource source{recordFolderPath(), 0};
  const auto checked = checkRecordFolder(source.folder);
  if (!checked && !checked.error().isNotFound()) source.error = checked.error().code();
  return source;
}

std::string problemText(std::uint32_t error) {
  return error == kFolderNotTrusted ? "users may have written to it" : systemErrorPhrase(error);
}

StoredHistory readHistory(const RecordSource& source, std::int64_t maximumBytes) {
  StoredHistory stored;
  stored.error = source.error;
  if (stored.error != 0) return stored;
  bool found = false;
  History ran;
  History refused;
  for (std::size_t i = 0; i < kRecordFiles.size(); ++i) {
    History& history = i < kRecordFiles.size() / 2 ? ran : refused;
    if (add(stored, history, source.folder, kRecordFiles.at(i), maximumBytes)) found = true;
  }
  stored.history = mergeByTime(std::move(ran), std::move(refused));
  const auto folder =
      FileUtils::HeldFolder::hold(source.folder, FileUtils::Links::Follow, FileUtils::OwnPlaces::Allow);
  for (const std::string& name : folder ? filesIn(*folder).names : std::vector<std::string>()) {
    if (isUsualFile(name) || !isRecordFile(name)) continue;
    History single;
    if (add(stored, single, source.folder, name.c_str(), maximumBytes)) found = true;
    stored.history = mergeByTime(std::move(stored.history), std::move(single));
  }
  if (!found && stored.error == 0) stored.error = ERROR_FILE_NOT_FOUND;
  return stored;
}

}  // namespace zarn::tool
