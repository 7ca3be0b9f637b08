#include <windows.h>

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <locale>
#include <string_view>
#include <vector>

#include "client/tool/archive.h"
#include "client/tool/commands.h"
#include "client/tool/files_win.h"
#include "client/tool/service_call_win.h"
#include "client/tool/service_setup_win.h"
#include "client/tool/text.h"
#include "util/file_utils.h"
#include "util/log_names.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/string_utils.h"
#include "util/system_error.h"

namespace zarn::tool {
namespace {

struct Source {
  std::string path;
  std::string name;  // in the archive
};

struct Collected {
  std::vector<std::string> names;
  /// Name and reason of each file that is not in the archive.
  std::vector<std::pair<std::string, std::string>> missing;
};

/// The two folders, held while they are read: any user may choose where they lie.
struct LogFolders {
  FileUtils::HeldFolder own;
  FileUtils::HeldFolder installers;
};

LogFolders holdFolders(const std::string& folder) {
  using FileUtils::HoldFor;
  using FileUtils::Links;
  LogFolders result{FileUtils::holdFolder(folder, Links::Follow, HoldFor::Reading), {}};
  if (result.own.error != 0) return result;
  result.installers = FileUtils::holdFolder(FileUtils::join(result.own.path, names::kInstallerLogs.narrow),
                                            Links::Refuse, HoldFor::Reading);
  return result;
}

/// What there is to collect. `error` of the Logs folder itself.
std::vector<Source> sourcesIn(const LogFolders& folders, std::uint32_t& error) {
  std::vector<Source> sources;
  error = folders.own.error;
  if (error != 0) return sources;
  const FolderFiles own = filesIn(folders.own.path);
  error = own.error;
  for (const std::string& name : own.names) {
    if (isServiceLogName<char>(name)) sources.push_back({FileUtils::join(folders.own.path, name), name});
  }
  if (folders.installers.error != 0) return sources;
  for (const std::string& name : filesIn(folders.installers.path).names) {
    if (!isInstallerLogName<char>(name)) continue;
    sources.push_back({FileUtils::join(folders.installers.path, name),
                       std::string(names::kInstallerLogs.narrow) + "/" + name});
  }
  return sources;
}

Collected fill(Archive& archive, const LogFolders& folders, const std::vector<Source>& sources) {
  Collected result;
  const std::uint32_t error = folders.installers.error;
  // That there is none is usual.
  if (error != 0 && !isMissing(error))
    result.missing.emplace_back(names::kInstallerLogs.narrow, systemErrorPhrase(error));
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

/// Whether a path asks for a zip file: it ends in ".zip", in any letters.
bool isZipName(std::string_view path) {
  return boost::algorithm::iends_with(path, ".zip", std::locale::classic());
}

}  // namespace

Answer runCollectLogs(const Arguments& arguments) {
  const std::string target = StringUtils::utf16to8(absolutePath(arguments.target));
  const std::string folder = serviceLogFolder(arguments.logs);
  std::uint32_t error = 0;
  const LogFolders folders = holdFolders(folder);
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

  Arguments aboutFolder;
  aboutFolder.logs = folder;
  const Collected collected = fill(archive, folders, sources);
  const bool complete =
      archive.addText("status.json",
                      runStatus(aboutFolder).json.dump(2, ' ', false, Json::error_handler_t::replace)) &&
      archive.finish();
  if (!complete) return notWritten(target, archive.problem());
  return describe(collected, target, folder);
}

}  // namespace zarn::tool
