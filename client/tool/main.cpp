// zarn-update: reads the command line, runs one command, prints its answer.
#include <windows.h>

#include <exception>
#include <new>
#include <string>
#include <vector>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/console.h"
#include "client/tool/report/command_line.h"
#include "client/tool/report/explanations.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

ExitCode deliver(const Answer& answer, const std::string& command, bool json) {
  const Reader reader = isTerminal(Stream::Output) ? Reader::Person : Reader::Program;
  const auto written = write(Stream::Output, json ? jsonText(answer, command, reader) : answer.text);
  const auto complain = [](const std::string& sentence) {
    // When this stream fails, too, nobody is left to be told.
    static_cast<void>(write(Stream::Error, "zarn-update: " + sentence + "\n"));
  };
  if (!answer.error.empty()) complain(answer.error);
  // As with `zarn-update history | more`: who stops reading has got what was wanted.
  if (written || isReaderGone(written.error())) return answer.exitCode;
  complain(sentence("The output could not be written: " + systemErrorPhrase(written.error())));
  return answer.exitCode == ExitCode::Success ? ExitCode::LocalFailure : answer.exitCode;
}

Answer run(Verb verb, const Arguments& arguments) {
  switch (verb) {
    case Verb::Check:
      return runCheck(arguments);
    case Verb::Install:
      return runInstall(arguments);
    case Verb::SetAppData:
      return runSetAppData(arguments);
    case Verb::Verify:
      return runVerify(arguments);
    case Verb::Status:
      return runStatus(arguments);
    case Verb::History:
      return runHistory(arguments);
    case Verb::Explain:
      return arguments.list ? codeListAnswer() : explanationAnswer(arguments.target);
    case Verb::CollectLogs:
      return runCollectLogs(arguments);
    case Verb::Wait:
      return runWait(arguments);
    case Verb::Doctor:
      return runDoctor(arguments);
    case Verb::PurgeLogs:
      return runPurgeLogs(arguments);
    case Verb::Completion:
      return completionAnswer();
    case Verb::Version:
      return versionAnswer();
    case Verb::Help:
      return helpAnswer(arguments);
  }
  return failed(ExitCode::WrongArguments, "There is no such command.");
}

/// Whatever goes wrong, the caller gets an exit code of ours and a sentence: a script must
/// be able to tell a refusal from a tool that broke down.
Answer runGuarded(const Invocation& invocation) {
  if (invocation.arguments.json) Interruption::answerInJson(invocation.command->name);
  const Interruption interruption("Interrupted.");
  try {
    return run(invocation.command->verb, invocation.arguments);
  } catch (const std::bad_alloc&) {
    return failed(ExitCode::LocalFailure, "Memory ran out.");
  } catch (const std::exception& error) {
    return failed(ExitCode::LocalFailure, sentence("An unexpected error: " + printable(error.what())));
  }
}

ExitCode runTool(const std::vector<std::string>& arguments) {
  const CommandLine read = readCommandLine(arguments);
  if (const auto* const mistake = std::get_if<Mistake>(&read)) {
    const std::string command = mistake->command == nullptr ? "" : mistake->command->name;
    return deliver(mistakeAnswer(*mistake), command, mistake->json);
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
  const auto code = zarn::tool::runTool(arguments);
  // Other threads of the process may still be inside calls, one that loads a library among them,
  // for which an orderly end would wait.
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
  return static_cast<int>(code);
}
