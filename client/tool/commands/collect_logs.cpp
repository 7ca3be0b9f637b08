#include <windows.h>

#include <chrono>
#include <exception>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/archive.h"
#include "client/tool/machine/collected_text.h"
#include "client/tool/machine/event_log.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/record.h"
#include "client/tool/machine/service.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "os/text.h"
#include "system/system_info.h"
#include "update/install_record.h"
#include "util/held_folder.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/product_version.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

using FileUtils::HeldFolder;

constexpr char kEarlierLogs[] = "Earlier Logs/";
constexpr char kPackage[] = "Package";
constexpr char kEvents[] = "events.xml";

/// More than a log file of the service has.
constexpr std::int64_t kMostLogBytes = std::int64_t{16} << 20;

constexpr std::size_t kMostPackageLogs = 20;
constexpr std::int64_t kMostPackageLogBytes = std::int64_t{16} << 20;

/// Where the manual has administrators keep the package's logs.
std::string packageLogFolder() {
  std::wstring folder(MAX_PATH, L'\0');
  const UINT length = GetSystemWindowsDirectoryW(folder.data(), MAX_PATH);
  folder.resize(length < MAX_PATH ? length : 0);
  return FileUtils::join(StringUtils::utf16to8(folder), "Logs");
}

bool isPackageLogName(std::string_view name) {
  constexpr std::string_view begin = names::kService.narrow, end = ".log";
  return name.size() >= begin.size() + end.size() &&
         os::equalsIgnoringCase(name.substr(0, begin.size()), begin) &&
         os::equalsIgnoringCase(name.substr(name.size() - end.size()), end);
}

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

/// A Logs folder and "Installer Logs" in it.
void addLogs(std::vector<Place>& places, const std::string& folder, const std::string& name) {
  auto logs = HeldFolder::hold(folder, FileUtils::Links::Follow, FileUtils::OwnPlaces::Allow);
  auto installers = logs ? logs->folder(names::kInstallerLogs.narrow) : failure(logs.error());
  places.push_back(placeOf(name, std::move(logs), isServiceLogName<char>));
  places.push_back(placeOf((name.empty() ? "" : name + "/") + names::kInstallerLogs.narrow,
                           std::move(installers), isInstallerLogName<char>));
}

/// The Logs folder, then what lies beside it, earlier ones, and the record of this machine or
/// of logs that were collected before.
std::vector<Place> holdPlaces(const std::string& logFolder, const std::string& given) {
  std::vector<Place> places;
  addLogs(places, logFolder, "");
  if (given.empty()) {
    std::size_t number = 0;
    for (const std::string& folder : earlierLogFolders(logFolder))
      addLogs(places, folder, kEarlierLogs + std::to_string(++number));
  }
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
  // The service masks tokens in its logs, but not the sign-in of a proxy's address that libcurl
  // cannot take apart and repeats.
  if (isServiceLogName(std::string_view(file)) && file.ends_with(".log")) {
    const auto text = readLogText(*place.folder, file, kMostLogBytes);
    if (!text) return tl::unexpected(Problem(text.error()));
    if (std::string shown = masked(*text); shown != *text) return archive.addText(entry, std::move(shown));
  }
  // Never through a link: who runs this may read more than who planted one.
  auto stream = place.folder->open(file, "rb");
  if (!stream) return tl::unexpected(Problem(stream.error()));
  return archive.addFile(entry, std::move(*stream));
}

Collected fill(Archive& archive, const std::vector<Place>& places) {
  Collected result;
  for (const Place& place : places) {
    const bool isLogs = place.name.empty();
    const std::string name = isLogs ? names::kLogs.narrow : place.name;
    // That there is none of the others is usual.
    if (!place.folder && (isLogs || !place.folder.error().isNotFound())) {
      result.missing.emplace_back(name, recordProblem(place.folder.error()));
    } else if (place.folder && !place.files) {
      result.missing.emplace_back(name, recordProblem(place.files.error()));
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

/// What the package was installed with, where its manual has Windows Installer write it. That
/// there is none is usual.
void addPackageLogs(Archive& archive, Collected& result) {
  const auto folder =
      HeldFolder::hold(packageLogFolder(), FileUtils::Links::Refuse, FileUtils::OwnPlaces::Allow);
  auto files = folder ? filesIn(*folder) : Result<std::vector<std::string>>(std::vector<std::string>());
  if (!files) return result.missing.emplace_back(kPackage, systemErrorPhrase(files.error())), void();
  std::erase_if(*files, [](const std::string& name) { return !isPackageLogName(name); });
  if (files->size() > kMostPackageLogs) {
    result.missing.emplace_back(
        kPackage, "there are more than " + std::to_string(kMostPackageLogs) + " logs; these are the first");
    files->resize(kMostPackageLogs);
  }
  for (const std::string& name : *files) {
    const std::string entry = std::string(kPackage) + "/" + name;
    const auto text = readLogText(*folder, name, kMostPackageLogBytes);
    result.note(entry, text ? archive.addText(entry, masked(*text)) : tl::unexpected(Problem(text.error())));
  }
}

void addEvents(Archive& archive, Collected& result) {
  const auto events = newestEvents();
  result.note(kEvents, events ? archive.addText(kEvents, masked(*events)) : tl::unexpected(events.error()));
}

/// What a command says, as text and as JSON.
void addAnswer(Archive& archive, Collected& result, const std::string& name,
               const std::function<Answer()>& command) {
  try {
    const Answer answer = command();
    const std::string object = answer.json.dump(2, ' ', false, Json::error_handler_t::replace);
    result.note(name + ".json", archive.addText(name + ".json", object));
    result.note(name + ".txt", archive.addText(name + ".txt", answer.text));
  } catch (const std::exception& error) {
    result.missing.emplace_back(name, error.what());
  }
}

/// What machine this is.
Answer systemAnswer() {
  std::string vendor, device, model;
  getPlatformInfo(vendor, device, model);
  SYSTEM_INFO system{};
  GetNativeSystemInfo(&system);
  const std::pair<const char*, std::string> facts[] = {
      {"time", isoTime(std::chrono::system_clock::now())},
      {"system", getOSVersionString()},
      {"architecture", std::string(architectureName(system.wProcessorArchitecture))},
      {"language", getLocaleName(GetUserDefaultLCID())},
      {"vendor", vendor},
      {"device", device},
      {"model", model},
      {"tool", kVersion}};
  Answer answer;
  for (const auto& [name, value] : facts) {
    answer.json[name] = value;
    answer.text += fields({{name, printable(value)}});
  }
  return answer;
}

/// What the machine is asked for beside the files.
void addFindings(Archive& archive, Collected& result, const Arguments& arguments) {
  if (arguments.logs.empty()) {
    addPackageLogs(archive, result);
    addEvents(archive, result);
  }
  addAnswer(archive, result, "status", [&] { return runStatus(arguments); });
  addAnswer(archive, result, "doctor", [&] {
    Arguments offline;
    offline.offline = true;
    return runDoctor(offline);
  });
  addAnswer(archive, result, "system", systemAnswer);
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
  // Where the service never began to log, or only an administrator may look, the rest says why;
  // who names a folder means that one.
  if (const auto& logs = places.front().files; !logs && !arguments.logs.empty()) {
    return failed(ExitCode::LocalFailure, sentence("The log folder " + printable(folder) +
                                                   " cannot be read: " + systemErrorPhrase(logs.error())));
  }
  if (FileUtils::exists(target) && (isZipName(target) || !isEmptyFolder(target))) {
    return failed(ExitCode::LocalFailure,
                  "There is something at " + printable(target) + " already; name a free place.");
  }
  const NewArchive archive = isZipName(target) ? newZip(target) : newFolder(target);
  if (!archive) return notWritten(target, archive.error());

  Collected collected = fill(**archive, places);
  addFindings(**archive, collected, arguments);
  const Attempt<> completed = (*archive)->finish();
  if (!completed) return notWritten(target, completed.error());
  return collectedAnswer(collected, target, folder);
}

}  // namespace zarn::tool
