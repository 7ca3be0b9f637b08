// zarn-update: reads the command line, runs one command, prints its answer.
#include <windows.h>

#include <exception>
#include <new>
#include <string>
#include <vector>

#include "client/tool/command_line.h"
#include "client/tool/console_win.h"
#include "client/tool/interruption_win.h"
#include "client/tool/text.h"
#include "os/error_text.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

/// The object that scripts see: what every command has in front of its own keys.
std::string jsonText(const Answer& answer, const std::string& command) {
  Json object = Json::object();
  object["command"] = command;
  object["ok"] = answer.exitCode == ExitCode::Success;
  object["exitCode"] = static_cast<int>(answer.exitCode);
  object["error"] = answer.error.empty() ? Json(nullptr) : Json(answer.error);
  object.update(answer.json);
  return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

ExitCode deliver(const Answer& answer, const std::string& command, bool json) {
  const bool written = write(Stream::Output, json ? jsonText(answer, command) : answer.text);
  const std::uint32_t code = lastSystemError();
  if (!answer.error.empty()) write(Stream::Error, "zarn-update: " + answer.error + "\n");
  if (written) return answer.exitCode;
  write(Stream::Error,
        "zarn-update: " +
            sentence("The output could not be written: " + systemErrorPhrase(failureCode(code))) + "\n");
  return answer.exitCode == ExitCode::Success ? ExitCode::LocalFailure : answer.exitCode;
}

Answer runGuarded(const Invocation& invocation) {
  const Interruption interruption("Interrupted.");
  try {
    return invocation.command->run(invocation.arguments);
  } catch (const std::bad_alloc&) {
    return failure(ExitCode::LocalFailure, "Memory ran out.");
  } catch (const std::exception& error) {
    return failure(ExitCode::LocalFailure, sentence("An unexpected error: " + printable(error.what())));
  }
}

ExitCode run(const std::vector<std::string>& arguments) {
  const CommandLine read = readCommandLine(arguments);
  if (const auto* const information = std::get_if<Information>(&read)) {
    Answer answer;
    answer.text = information->text;
    return deliver(answer, "", false);
  }
  if (const auto* const mistake = std::get_if<Mistake>(&read)) {
    return deliver(failure(ExitCode::WrongArguments, mistake->sentence), "", mistake->json);
  }
  const auto& invocation = std::get<Invocation>(read);
  return deliver(runGuarded(invocation), invocation.command->name, invocation.arguments.json);
}

}  // namespace
}  // namespace zarn::tool

int wmain(int count, wchar_t** values) {
  // DLLs come from the system folder only, whatever lies in the current one.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(zarn::StringUtils::utf16to8(values[i]));
  const auto code = zarn::tool::run(arguments);
  // Other threads of the process may still be inside calls.
  ExitProcess(static_cast<UINT>(code));
}
