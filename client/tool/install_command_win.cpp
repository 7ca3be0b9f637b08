#include <chrono>
#include <future>
#include <optional>
#include <string>

#include "client/tool/commands.h"
#include "client/tool/explanations.h"
#include "client/tool/interruption_win.h"
#include "client/tool/progress_win.h"
#include "client/tool/service_call_win.h"
#include "client/tool/text.h"
#include "os/error_text.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

using Clock = std::chrono::steady_clock;

/// The out value means something only when an installer was to be started: with
/// kFailed a 0 says that it never came to that.
std::optional<std::uint32_t> installerExitCode(const client::InstallAnswer& answered) {
  const auto code = static_cast<std::uint32_t>(answered.installerExitCode);
  switch (answered.status) {
    case client::kInstalled:
    case client::kInstalledRebootRequired:
    case client::kRebootInitiated:
    case client::kExitCodeUnknown:
      return code;
    case client::kFailed:
      return code != 0 ? std::optional(code) : std::nullopt;
    default:
      return std::nullopt;
  }
}

std::string inWords(std::uint32_t installerCode) {
  const Explanation* row = explain(CodeKind::Installer, installerCode);
  if (row == nullptr) row = explain(CodeKind::System, installerCode);
  return codeText(installerCode) + (row == nullptr ? "" : ", " + std::string(row->meaning));
}

Answer describe(const client::InstallAnswer& answered, const std::string& bundle, std::int64_t milliseconds) {
  Answer answer;
  const bool installed = isSuccess(answered.status);
  const bool refused =
      answered.status == client::kSignatureRefused || answered.status == client::kSignerRefused;
  const auto installerCode = installerExitCode(answered);
  answer.json["bundle"] = bundle;
  answer.json["installed"] = installed;
  answer.json["installerExitCode"] = installerCode ? Json(*installerCode) : Json(nullptr);
  answer.json["elapsedMs"] = milliseconds;
  answer.text = (installed ? "Installed: " : refused ? "Refused: " : "Failed: ") + printable(bundle) + "\n";
  describeStatus(answer, answered.status);
  if (installerCode) answer.text += fields({{"Installer", inWords(*installerCode)}});
  answer.text += fields({{"Took", duration(milliseconds)}});
  return answer;
}

}  // namespace

Answer runInstall(const Arguments& arguments) {
  const std::wstring bundle = absolutePath(arguments.target);
  if (auto problem = missingFile(bundle)) return *problem;
  const auto begin = Clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
  };
  const Interruption interruption("Interrupted; the service goes on with the installation.");
  auto call = std::async(std::launch::async, [&] { return client::UpdateClient().install(bundle); });
  Progress progress;
  while (call.wait_for(std::chrono::milliseconds(250)) != std::future_status::ready) progress.show(elapsed());
  progress.clear();
  const auto result = call.get();
  if (!result.ok()) return noAnswer(result.error());
  return describe(result.value(), StringUtils::utf16to8(bundle), elapsed());
}

}  // namespace zarn::tool
