#include <windows.h>

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <locale>
#include <string_view>
#include <utility>
#include <vector>

#include "client/tool/archive.h"
#include "client/tool/commands.h"
#include "client/tool/files_win.h"
#include "client/tool/history_files_win.h"
#include "client/tool/service_call_win.h"
#include "client/tool/service_setup_win.h"
#include "client/tool/text.h"
#include "os/error_text.h"
#include "util/held_folder.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

struct Source {
  const FileUtils::HeldFolder* folder;
  std::string name;       // in the folder
  std::string entryName;  // in the archive
};

struct Collected {
  std::vector<std::string> names;
  /// Name and reason of each file that is not in the archive.
  std::vector<std::pair<std::string, std::string>> missing;
};

/// The folders, held while they are read: any user may choose where the logs lie.
struct LogFolders {
  Result<FileUtils::HeldFolder> own;
  Result<FileUtils::HeldFolder> installers;
  Result<FileUtils::HeldFolder> record;
};

/// The record folder of this machine, or of logs that were collected before.
Result<FileUtils::HeldFolder> holdRecord(const std::string& given) {
  const RecordSource source = recordSource(given);
  // The Logs folder itself is no place apart.
  if (source.folder == given) return zarn::failure(ERROR_FILE_NOT_FOUND);
  if (source.error != 0) return zarn::failure(source.error);
  return FileUtils::HeldFolder::hold(source.folder, FileUtils::Links::Refuse, FileUtils::OwnPlaces::Allow);
}

LogFolders holdFolders(const std::string& folder, const std::string& given) {
  using namespace FileUtils;
  auto own = HeldFolder::hold(folder, Links::Follow, OwnPlaces::Allow);
  auto installers = own ? own->folder(names::kInstallerLogs.narrow)
                        : Result<HeldFolder>(zarn::failure(ERROR_FILE_NOT_FOUND));
  return {std::move(own), std::move(installers), holdRecord(given)};
}

/// Files of a folder beside the Logs folder; none of one that is not held.
void addSources(std::vector<Source>& sources, const Result<FileUtils::HeldFolder>& folder, const char* name,
                bool (*isWanted)(std::string_view)) {
  if (!folder) return;
  for (const std::string& file : filesIn(*folder).names) {
    if (isWanted(file)) sources.push_back({&*folder, file, std::string(name) + "/" + file});
  }
}

/// What there is to collect. `error` of the Logs folder itself.
std::vector<Source> sourcesIn(const LogFolders& folders, std::uint32_t& error) {
  std::vector<Source> sources;
  error = folders.own ? 0 : folders.own.error().code();
  if (!folders.own) return sources;
  const FolderFiles own = filesIn(*folders.own);
  error = own.error;
  for (const std::string& name : own.names) {
    if (isServiceLogName<char>(name)) sources.push_back({&*folders.own, name, name});
  }
  addSources(sources, folders.installers, names::kInstallerLogs.narrow, isInstallerLogName<char>);
  addSources(sources, folders.record, names::kCollectedRecord.narrow, isRecordFile);
  return sources;
}

Collected fill(Archive& archive, const LogFolders& folders, const std::vector<Source>& sources) {
  Collected result;
  const std::pair<const char*, const Result<FileUtils::HeldFolder>*> beside[] = {
      {names::kInstallerLogs.narrow, &folders.installers}, {names::kCollectedRecord.narrow, &folders.record}};
  for (const auto& [name, held] : beside) {
    // That there is none is usual.
    if (!*held && !held->error().isNotFound())
      result.missing.emplace_back(name, problemText(held->error().code()));
  }
  for (const Source& source : sources) {
    // Never through a link: who runs this may read more than who planted one.
    auto file = source.folder->open(source.name, "rb");
    if (!file) {
      result.missing.emplace_back(source.entryName, systemErrorPhrase(file.error()));
    } else if (archive.addFile(source.entryName, std::move(*file))) {
      result.names.push_back(source.entryName);
    } else {
      result.missing.emplace_back(source.entryName, archive.problem());
    }
  }
  return result;
}

Answer describe(const Collected& collected, const std::string& target, const std::string& folder) {
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

Answer notWritten(const std::string& target, const std::string& reason) {
  return failure(ExitCode::LocalFailure,
                 sentence(printable(target) + " could not be written: " + printable(reason)));
}

/// Whether a path asks for a zip file: it ends in ".zip", in any letters.
bool isZipName(std::string_view path) {
  return boost::algorithm::iends_with(path, ".zip", std::locale::classic());
}

}  // namespace

Answer runCollectLogs(const Arguments& arguments) {
  const std::string target = StringUtils::utf16to8(absolutePath(arguments.target));
  const std::string folder = serviceLogFolder(arguments.logs);
  std::uint32_t error = 0;
  const LogFolders folders = holdFolders(folder, arguments.logs);
  const std::vector<Source> sources = sourcesIn(folders, error);
  if (error != 0) {
    return failure(ExitCode::LocalFailure, sentence("The log folder " + printable(folder) +
                                                    " cannot be read: " + systemErrorPhrase(error)));
  }
  const bool occupied = FileUtils::exists(target) && (isZipName(target) || !isEmptyFolder(target));
  if (occupied) {
    return failure(ExitCode::LocalFailure,
                   "There is something at " + printable(target) + " already; name a free place.");
  }
  const NewArchive created = isZipName(target) ? newZip(target) : newFolder(target);
  if (!created.archive) return notWritten(target, created.problem);
  Archive& archive = *created.archive;

  Arguments about;
  about.logs = arguments.logs;
  const Collected collected = fill(archive, folders, sources);
  const bool complete = archive.addText("status.json", runStatus(about).json.dump(
                                                           2, ' ', false, Json::error_handler_t::replace)) &&
                        archive.finish();
  if (!complete) return notWritten(target, archive.problem());
  return describe(collected, target, folder);
}

}  // namespace zarn::tool
