// check, install and set-app-data: one call to the service each.
#include <chrono>
#include <future>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/console.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/service.h"
#include "client/tool/report/outcome.h"
#include "client/tool/report/text.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kProgressInterval(250);

/// In whole seconds, so that the line does not flicker. The service's state tells a long
/// installation from a service that has gone.
std::string progressText(milliseconds elapsed) {
  const auto service = queryService();
  const auto wholeSeconds = std::chrono::floor<std::chrono::seconds>(elapsed);
  return "Installing, " + duration(milliseconds(wholeSeconds).count()) + " so far; the service is " +
         (service ? service->state : "unknown");
}

}  // namespace

Answer runCheck(const Arguments& arguments) {
  const std::wstring bundle = absolutePath(arguments.target);
  if (auto problem = missingFile(bundle)) return *problem;
  const auto result = client::UpdateClient().checkBundle(bundle);
  // The service is asked about after the call: what stands there now is what can be mended.
  if (!result.ok()) return noAnswer(result.error(), queryService());
  return checkAnswer(StringUtils::utf16to8(bundle), static_cast<Status>(result.value()));
}

Answer runInstall(const Arguments& arguments) {
  const std::wstring bundle = absolutePath(arguments.target);
  if (auto problem = missingFile(bundle)) return *problem;
  const auto begin = Clock::now();
  const auto elapsed = [&] { return std::chrono::duration_cast<milliseconds>(Clock::now() - begin); };
  const Interruption interruption("Interrupted; the service goes on with the installation.");
  // The call blocks for minutes; this thread shows that it goes on.
  auto call = std::async(std::launch::async, [&] { return client::UpdateClient().install(bundle); });
  ProgressLine progress;
  while (call.wait_for(kProgressInterval) != std::future_status::ready) {
    if (progress.isWatched()) progress.show(progressText(elapsed()));
  }
  progress.clear();
  const auto result = call.get();
  if (!result.ok()) return noAnswer(result.error(), queryService());
  return installAnswer(StringUtils::utf16to8(bundle), result.value(), elapsed());
}

Answer runSetAppData(const Arguments& arguments) {
  // An empty path is no path that could be missing: it takes the service's own folder back.
  const bool isReset = arguments.target.empty();
  const std::wstring directory = isReset ? std::wstring() : absolutePath(arguments.target);
  if (!isReset) {
    if (auto problem = missingFolder(directory)) return *problem;
  }
  const auto result = client::UpdateClient().setAppDataPath(directory);
  if (!result.ok()) return noAnswer(result.error(), queryService());
  return setAppDataAnswer(StringUtils::utf16to8(directory));
}

}  // namespace zarn::tool
