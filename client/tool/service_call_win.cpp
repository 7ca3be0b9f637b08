#include "client/tool/service_call_win.h"

#include <windows.h>

#include "client/tool/explanations.h"
#include "client/tool/service_query_win.h"
#include "client/tool/text.h"
#include "os/error_text.h"
#include "util/file_utils.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

std::string notRunning() {
  const ServiceQuery query = queryService();
  if (query.error == ERROR_SERVICE_DOES_NOT_EXIST) {
    return "The update service is not installed on this machine; run its setup program.";
  }
  if (query.facts && !query.facts->running) {
    return "The update service is not running, it is " + query.facts->state +
           "; start it: sc start ZarnUpdateService.";
  }
  return "The update service cannot be reached; see zarn-update status.";
}

std::string reasonOf(const client::CallError& error) {
  switch (error.failure) {
    case client::CallFailure::NotRunning:
      return notRunning();
    case client::CallFailure::Refused:
      return "The update service refused this caller, or another program stands in its place; call as a "
             "local user of this machine, and see zarn-update status.";
    case client::CallFailure::Interrupted:
      return "The update service went away during the call, so what it did is unknown; see zarn-update "
             "status and "
             "zarn-update history.";
    case client::CallFailure::InvalidPath:
      return "The path holds a zero character.";
    case client::CallFailure::Other:
      break;
  }
  const std::string words = systemErrorPhrase(error.rpcStatus);
  return sentence("The call to the update service failed with RPC status " + std::to_string(error.rpcStatus) +
                  (words.empty() ? "" : ", " + words));
}

ExitCode exitCodeOf(client::CallFailure failure) noexcept {
  if (failure == client::CallFailure::Interrupted) return ExitCode::Interrupted;
  if (failure == client::CallFailure::InvalidPath) return ExitCode::WrongArguments;
  return ExitCode::ServiceUnreachable;
}

void describe(Answer& answer, std::int32_t status, const std::string& meaning, const std::string& advice) {
  answer.exitCode = isSuccess(status) ? ExitCode::Success : ExitCode::Refused;
  answer.json["status"] = status;
  answer.json["meaning"] = meaning;
  answer.json["advice"] = advice;
  answer.text +=
      fields({{"Status", codeText(static_cast<std::uint32_t>(status)) + ", " + meaning}, {"Next", advice}});
}

}  // namespace

std::wstring absolutePath(const std::string& path) {
  const std::wstring wide = StringUtils::utf8to16(path);
  std::wstring full;
  DWORD size = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
  if (size == 0) return {};
  full.resize(size);
  size = GetFullPathNameW(wide.c_str(), size, full.data(), nullptr);
  full.resize(size < full.size() ? size : 0);
  return FileUtils::toPath(StringUtils::utf16to8(full)).native();
}

std::optional<Answer> missingFile(const std::wstring& path) {
  const std::string shown = printable(StringUtils::utf16to8(path));
  if (path.empty()) return failure(ExitCode::LocalFailure, "The path is not valid.");
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES) {
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return std::nullopt;
    return failure(ExitCode::LocalFailure, "This is a folder and not a bundle: " + shown + ".");
  }
  switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_NETPATH:
      return failure(ExitCode::LocalFailure, "There is no such file: " + shown + ".");
    default:
      return std::nullopt;  // the service may see more than its caller
  }
}

Answer noAnswer(const client::CallError& error) {
  Answer answer = failure(exitCodeOf(error.failure), reasonOf(error));
  answer.json["rpcStatus"] = error.rpcStatus;
  return answer;
}

bool isSuccess(std::int32_t status) noexcept {
  return status == client::kInstalled || status == client::kInstalledRebootRequired ||
         status == client::kRebootInitiated;
}

void describeStatus(Answer& answer, std::int32_t status) {
  const auto code = static_cast<std::uint32_t>(status);
  const Explanation* row = explain(CodeKind::Status, code);
  if (row == nullptr) row = explain(CodeKind::System, code);
  describe(answer, status, row != nullptr ? std::string(row->meaning) : systemErrorPhrase(code),
           std::string(row != nullptr ? row->advice : ""));
}

void describeVerdict(Answer& answer, std::int32_t status, const std::optional<std::string>& advice) {
  if (status == client::kInstalled) {
    describe(answer, status, "signature and signer are trusted", advice.value_or("Nothing"));
    return;
  }
  const Explanation* const row = explain(CodeKind::Status, static_cast<std::uint32_t>(status));
  describe(answer, status, std::string(row != nullptr ? row->meaning : "refused"),
           advice.value_or(std::string(row != nullptr ? row->advice : "")));
  answer.exitCode = ExitCode::Refused;
}

}  // namespace zarn::tool
