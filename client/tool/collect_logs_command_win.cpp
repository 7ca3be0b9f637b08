#include <windows.h>

#include <algorithm>
#include <vector>

#include "client/tool/archive.h"
#include "client/tool/commands.h"
#include "client/tool/files_win.h"
#include "client/tool/log_names.h"
#include "client/tool/service_call_win.h"
#include "client/tool/service_setup_win.h"
#include "client/tool/text.h"
#include "util/file_utils.h"
#include "util/printable.h"
#include "util/string_utils.h"
#include "util/system_error.h"

namespace zarn::tool {
namespace {

constexpr char kInstallerLogs[] = "Installer Logs";

struct Source {
  std::string path;
  std::string name;  // in the archive
};

struct Collected {
  std::vector<std::string> names;
  /// Name and reason of each file that is not in the archive.
  std::vector<std::pair<std::string, std::string>> missing;
};

/// What there is to collect. `error` of the Logs folder itself; a missing
/// "Installer Logs" is usual.
std::vector<Source> sourcesIn(const std::string& folder, std::uint32_t& error) {
  std::vector<Source> sources;
  const FolderFiles own = filesIn(folder);
  error = own.error;
  for (const std::string& name : own.names) {
    if (isServiceLog(name)) sources.push_back({FileUtils::join(folder, name), name});
  }
  const std::string installers = FileUtils::join(folder, kInstallerLogs);
  for (const std::string& name : filesIn(installers).names) {
    sources.push_back({FileUtils::join(installers, name), std::string(kInstallerLogs) + "/" + name});
  }
  return sources;
}

Collected fill(Archive& archive, const std::vector<Source>& sources) {
  Collected result;
  for (const Source& source : sources) {
    // Never through a link: who runs this may read more than who planted one.
    auto file = FileUtils::safeOpen(source.path, "rb", true, FileUtils::Links::Refuse);
    if (!file) {
      result.missing.emplace_back(source.name, systemErrorPhrase(failureCode(lastSystemError())));
    } else if (archive.addFile(source.name, std::move(file))) {
      result.names.push_back(source.name);
    } else {
      result.missing.emplace_back(source.name, archive.problem());
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

}  // namespace

Answer runCollectLogs(const Arguments& arguments) {
  const std::string target = StringUtils::utf16to8(absolutePath(arguments.target));
  const std::string folder = serviceLogFolder(arguments.logs);
  std::uint32_t error = 0;
  const std::vector<Source> sources = sourcesIn(folder, error);
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

  Arguments aboutFolder;
  aboutFolder.logs = folder;
  const Collected collected = fill(archive, sources);
  const bool complete =
      archive.addText("status.json",
                      runStatus(aboutFolder).json.dump(2, ' ', false, Json::error_handler_t::replace)) &&
      archive.finish();
  if (!complete) return notWritten(target, archive.problem());
  return describe(collected, target, folder);
}

}  // namespace zarn::tool
