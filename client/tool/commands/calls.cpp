// check, install and set-app-data: one call to the service each.
#include <chrono>
#include <future>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/console.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/record.h"
#include "client/tool/machine/service.h"
#include "client/tool/machine/verification.h"
#include "client/tool/report/outcome.h"
#include "client/tool/report/progress.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::chrono::seconds kSecond(1);

/// Shows once a second that the call goes on, which takes minutes; asks nobody when nobody watches.
template <typename Call, typename Elapsed>
void showProgress(const Call& call, Clock::time_point begin, const Elapsed& elapsed) {
  ProgressLine progress;
  if (!progress.isWatched()) return;
  for (auto next = begin + kSecond; call.wait_until(next) != std::future_status::ready; next += kSecond) {
    const auto service = queryService();
    progress.show(installingText(elapsed(), service ? service->state : "unknown"));
  }
  progress.clear();
}

/// Enough for an account service that cannot be reached.
constexpr std::chrono::seconds kWorkOutLimit(20);

}  // namespace

Answer runCheck(const Arguments& arguments) {
  const std::wstring bundle = absolutePath(arguments.target);
  if (auto problem = missingFile(bundle)) return *problem;
  const auto result = client::UpdateClient().checkBundle(bundle);
  // The service is asked about after the call: what stands there now is what can be mended.
  if (!result.ok()) return noAnswer(result.error(), queryService());
  const auto status = static_cast<Status>(result.value());
  const bool isRefused = status == Status::SignatureRefused || status == Status::SignerRefused;
  const auto found = isRefused ? std::optional(workOutCheck(bundle, kWorkOutLimit)) : std::nullopt;
  return checkAnswer(StringUtils::utf16to8(bundle), status, found, whyNotInstallable(bundle));
}

Answer runInstall(const Arguments& arguments) {
  const std::wstring bundle = absolutePath(arguments.target);
  if (auto problem = missingFile(bundle)) return *problem;
  const std::string began = isoTime(std::chrono::system_clock::now());
  const auto begin = Clock::now();
  const auto elapsed = [&] { return std::chrono::duration_cast<milliseconds>(Clock::now() - begin); };
  const Interruption interruption("Interrupted; the service goes on with the installation.");
  auto call = std::async(std::launch::async, [&] { return client::UpdateClient().install(bundle); });
  showProgress(call, begin, elapsed);
  const auto result = call.get();
  if (!result.ok()) return noAnswer(result.error(), queryService());
  const std::string path = StringUtils::utf16to8(bundle);
  const auto took = elapsed();
  const auto status = static_cast<Status>(result.value().status);
  const OwnRequest request =
      isSuccess(status) ? OwnRequest{} : findOwnRequest(recordSource({}), path, began, status);
  return installAnswer(path, result.value(), took, request);
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
