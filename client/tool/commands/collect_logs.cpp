#include <string_view>
#include <utility>
#include <vector>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/archive.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/record.h"
#include "client/tool/machine/service.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "os/text.h"
#include "util/held_folder.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

using FileUtils::HeldFolder;

/// A folder whose files are collected. It is held from the listing to the last copy:
/// any user may choose where the logs lie, and exchange what lies there meanwhile.
struct Place {
  /// In front of the files' names in the archive; empty for the Logs folder itself.
  std::string name;
  Result<HeldFolder> folder;
  Result<std::vector<std::string>> files;
};

Place placeOf(std::string name, Result<HeldFolder> folder, bool (*isWanted)(std::string_view)) {
  auto files = folder ? filesIn(*folder) : failure(folder.error());
  if (files) std::erase_if(*files, [&](const std::string& file) { return !isWanted(file); });
  return {std::move(name), std::move(folder), std::move(files)};
}

/// The Logs folder, then what lies beside it and the record of this machine or of logs
/// that were collected before.
std::vector<Place> holdPlaces(const std::string& logFolder, const std::string& given) {
  std::vector<Place> places;
  auto logs = HeldFolder::hold(logFolder, FileUtils::Links::Follow, FileUtils::OwnPlaces::Allow);
  auto installers = logs ? logs->folder(names::kInstallerLogs.narrow) : failure(logs.error());
  places.push_back(placeOf("", std::move(logs), isServiceLogName<char>));
  places.push_back(placeOf(names::kInstallerLogs.narrow, std::move(installers), isInstallerLogName<char>));
  const RecordSource source = recordSource(given);
  // The Logs folder itself is no place apart.
  if (source.folder == given) return places;
  auto record = source.usable
                    ? HeldFolder::hold(source.folder, FileUtils::Links::Refuse, FileUtils::OwnPlaces::Allow)
                    : failure(source.usable.error());
  places.push_back(placeOf(names::kCollectedRecord.narrow, std::move(record), isRecordFile));
  return places;
}

struct Collected {
  std::vector<std::string> names;
  /// Name and reason of each file that is not in the archive.
  std::vector<std::pair<std::string, std::string>> missing;

  void note(const std::string& name, const Attempt<>& added) {
    if (added) {
      names.push_back(name);
    } else {
      missing.emplace_back(name, added.error().words);
    }
  }
};

Attempt<> addFile(Archive& archive, const Place& place, const std::string& file, const std::string& entry) {
  // Never through a link: who runs this may read more than who planted one.
  auto stream = place.folder->open(file, "rb");
  if (!stream) return tl::unexpected(Problem(stream.error()));
  return archive.addFile(entry, std::move(*stream));
}

Collected fill(Archive& archive, const std::vector<Place>& places) {
  Collected result;
  for (const Place& place : places) {
    // That there is none is usual.
    if (!place.folder && !place.folder.error().isNotFound()) {
      result.missing.emplace_back(place.name, recordProblem(place.folder.error()));
    } else if (place.folder && !place.files) {
      result.missing.emplace_back(place.name, recordProblem(place.files.error()));
    }
  }
  for (const Place& place : places) {
    if (!place.files) continue;
    for (const std::string& file : *place.files) {
      const std::string entry = place.name.empty() ? file : place.name + "/" + file;
      result.note(entry, addFile(archive, place, file, entry));
    }
  }
  return result;
}

Answer collectedAnswer(const Collected& collected, const std::string& target, const std::string& folder) {
  Answer answer;
  answer.json["target"] = target;
  answer.json["logFolder"] = folder;
  answer.json["files"] = collected.names;
  answer.json["missing"] = Json::array();
  answer.text = "Collected " + std::to_string(collected.names.size()) + " file(s) of " + printable(folder) +
                " in " + printable(target) + "\n";
  for (const auto& [name, reason] : collected.missing) {
    answer.json["missing"].push_back({{"name", name}, {"reason", reason}});
    answer.text += "Not collected: " + printable(name) + ": " + reason + "\n";
  }
  if (!collected.missing.empty()) {
    answer.exitCode = ExitCode::LocalFailure;
    answer.error = std::to_string(collected.missing.size()) + " file(s) could not be read and are not in " +
                   printable(target) + ".";
  }
  return answer;
}

Answer notWritten(const std::string& target, const Problem& problem) {
  return failed(ExitCode::LocalFailure,
                sentence(printable(target) + " could not be written: " + printable(problem.words)));
}

/// Whether a path asks for a zip file: it ends in ".zip", in any letters.
bool isZipName(std::string_view path) {
  constexpr std::string_view extension = ".zip";
  return path.size() >= extension.size() &&
         os::equalsIgnoringCase(path.substr(path.size() - extension.size()), extension);
}

}  // namespace

Answer runCollectLogs(const Arguments& arguments) {
  const std::string target = StringUtils::utf16to8(absolutePath(arguments.target));
  const std::string folder = serviceLogFolder(arguments.logs);
  const std::vector<Place> places = holdPlaces(folder, arguments.logs);
  if (const auto& logs = places.front().files; !logs) {
    return failed(ExitCode::LocalFailure, sentence("The log folder " + printable(folder) +
                                                   " cannot be read: " + systemErrorPhrase(logs.error())));
  }
  if (FileUtils::exists(target) && (isZipName(target) || !isEmptyFolder(target))) {
    return failed(ExitCode::LocalFailure,
                  "There is something at " + printable(target) + " already; name a free place.");
  }
  const NewArchive archive = isZipName(target) ? newZip(target) : newFolder(target);
  if (!archive) return notWritten(target, archive.error());

  const Collected collected = fill(**archive, places);
  const std::string status = runStatus(arguments).json.dump(2, ' ', false, Json::error_handler_t::replace);
  const Attempt<> completed =
      (*archive)->addText("status.json", status).and_then([&] { return (*archive)->finish(); });
  if (!completed) return notWritten(target, completed.error());
  return collectedAnswer(collected, target, folder);
}

}  // namespace zarn::tool
