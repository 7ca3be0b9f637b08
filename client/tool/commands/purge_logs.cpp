#include <windows.h>

#include <array>
#include <cstddef>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/purge.h"
#include "client/tool/machine/service.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "update/record_folder.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

/// With the rights of one, not only in the group.
bool isAdministrator() {
  std::array<std::byte, SECURITY_MAX_SID_SIZE> administrators{};
  auto size = static_cast<DWORD>(administrators.size());
  BOOL isMember = FALSE;
  return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators.data(), &size) != 0 &&
         CheckTokenMembership(nullptr, administrators.data(), &isMember) != 0 && isMember != FALSE;
}

Answer purgedAnswer(const Purged& purged) {
  Answer answer;
  answer.json["files"] = purged.files;
  answer.json["left"] = Json::array();
  answer.text = "Deleted " + std::to_string(purged.files.size()) + " file(s)\n";
  for (const auto& [path, error] : purged.left) {
    const std::string reason = systemErrorPhrase(error);
    answer.json["left"].push_back({{"name", path}, {"reason", reason}});
    answer.text += "Not deleted: " + printable(path) + ": " + reason + "\n";
  }
  if (!purged.left.empty()) {
    const auto& [path, error] = purged.left.front();
    answer.exitCode = ExitCode::LocalFailure;
    answer.error = sentence(printable(path) + " could not be deleted: " + systemErrorPhrase(error));
  }
  return answer;
}

}  // namespace

Answer runPurgeLogs(const Arguments&) {
  if (!isAdministrator())
    return failed(ExitCode::LocalFailure, "This needs an administrator: run it with elevated rights.");
  const auto service = queryService();
  if (!service && !isNotInstalled(service.error())) {
    return failed(ExitCode::LocalFailure, sentence("Whether the update service runs cannot be told: " +
                                                   systemErrorPhrase(service.error())));
  }
  // It would go on writing to files that have no name any more.
  if (service && service->state != "stopped") {
    return failed(ExitCode::Refused,
                  "The update service is " + service->state + "; stop it first: net stop ZarnUpdateService.");
  }
  return purgedAnswer(purgeLogs(applicationDataFolders(), recordFolderPath()));
}

}  // namespace zarn::tool
