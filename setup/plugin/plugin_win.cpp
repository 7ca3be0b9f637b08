// What the setup script calls. Every step answers on the script's stack with an
// exit code (0 for done), below it the sentence for the administrator, and below
// that its result.
#include <windows.h>

#include <exception>

#include "plugin/nsis_call.h"
#include "plugin/options.h"
#include "plugin/program_files.h"
#include "plugin/service_registration.h"
#include "plugin/setup_error.h"
#include "plugin/setup_log.h"
#include "util/string_utils.h"

namespace zarn::setup {
namespace {

constexpr wchar_t kOneSetup[] = L"Global\\ZarnUpdateServiceSetup";

/// The exception that is being handled, as one of setup's own.
SetupError currentFailure() {
  try {
    throw;
  } catch (const SetupError& error) {
    return error;
  } catch (const std::exception& error) {
    return {ExitCode::Failed, L"Setup failed: " + StringUtils::utf8to16(error.what()) + L"."};
  } catch (...) {
    return {ExitCode::Failed, L"Setup failed for a reason it does not know."};
  }
}

/// Runs a step and answers; nothing thrown reaches the script.
template <typename Step>
void guarded(NsisStack& stack, Step step) noexcept {
  const auto answer = [&](ExitCode code, const std::wstring& sentence, const std::wstring& result) {
    stack.push(result);
    stack.push(sentence);
    stack.push(std::to_wstring(static_cast<std::uint32_t>(code)));
  };
  try {
    answer(ExitCode::Done, {}, step());
  } catch (...) {
    const SetupError error = currentFailure();
    answer(error.code(), error.sentence(), {});
  }
}

void requireAdministrator() {
  SID_IDENTIFIER_AUTHORITY authority{SECURITY_NT_AUTHORITY};
  PSID administrators = nullptr;
  BOOL member = FALSE;
  if (AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                               0, 0, 0, &administrators) != 0) {
    if (CheckTokenMembership(nullptr, administrators, &member) == 0) member = FALSE;
    FreeSid(administrators);
  }
  if (member == FALSE) {
    throw SetupError(ExitCode::NeedsAdministrator,
                     L"This needs an administrator: run it with elevated rights.");
  }
}

/// One setup or uninstaller at a time.
void requireOneSetup() {
  KernelHandle mutex(CreateMutexW(nullptr, FALSE, kOneSetup));
  if (!mutex || GetLastError() == ERROR_ALREADY_EXISTS) {
    throw SetupError(ExitCode::Busy, L"Another setup of the Zarn Update Service is running.");
  }
  // It stands for this process and is closed by its end.
  static_cast<void>(mutex.release());
}

Program popProgram(NsisStack& stack) {
  return stack.pop() == L"uninstaller" ? Program::Uninstaller : Program::Setup;
}

/// install, uninstall or help: what this process was asked for, and may do.
std::wstring begin(Program program) {
  const Options options = ownOptions(program);
  if (options.help) return L"help";
  requireAdministrator();
  // The uninstaller, which setup starts, will look for other setups itself.
  if (options.uninstall) return L"uninstall";
  if (options.caBundle && !options.caBundle->empty()) checkCaBundle(*options.caBundle);
  requireOneSetup();
  return program == Program::Setup ? L"install" : L"uninstall";
}

bool startAgain(const ServiceRegistration& service) {
  try {
    service.start();
    return true;
  } catch (const SetupError&) {
    return false;
  }
}

/// Puts everything back. The failure that made it necessary, with what could not
/// be put back.
SetupError undo(const SetupError& failure, Replacement& files, ServiceRegistration& service, bool ran) {
  ExitCode code = failure.code();
  std::wstring sentence = failure.sentence();
  service.undo();
  if (!files.undo()) {
    code = ExitCode::Failed;
    sentence += L" Not all old files could be put back; the others are in \"" + files.outgoing().native() +
                L"\". Run setup again.";
  }
  if (ran && !startAgain(service)) sentence += L" The service could not be started again.";
  return {code, sentence};
}

/// Replaces the files and registers the service, or leaves everything as it was.
/// "start" when the service shall run afterwards.
std::wstring activate(const ProgramFolder& folder) {
  const Options options = ownOptions(Program::Setup);
  settleCaBundle(folder, options.caBundle ? &*options.caBundle : nullptr);
  ServiceRegistration service;
  const bool ran = service.isRunning();
  Replacement files(folder);
  try {
    service.stop(options.wait);
    service.apply({folder.program.native(), folder.temp.native(), options.start, options.accountHost});
    files.run();
    // The service control manager may have restarted it after an update.
    service.stop(options.wait);
    files.keep();
  } catch (...) {
    throw undo(currentFailure(), files, service, ran);
  }
  return ran || service.startsAutomatically() ? L"start" : L"";
}

std::wstring uninstallerArguments() {
  const Options options = ownOptions(Program::Setup);
  std::wstring result = L"/WAIT=" + std::to_wstring(options.wait.count());
  if (options.purgeLogs) result += L" /PURGELOGS";
  if (!options.log.empty()) result += L" \"/LOG=" + options.log + L'"';
  return result;
}

void log(const std::wstring& text) {
  const std::wstring file = ownLog();
  appendToLog(file.empty() ? defaultLogFile() : file, text);
}

}  // namespace
}  // namespace zarn::setup

using namespace zarn::setup;  // NOLINT(google-build-using-namespace)

// A function that the script calls: ZARN_STEP(name) { ... return result; }
#define ZARN_STEP(name)                                                                                 \
  static std::wstring step##name(NsisStack& stack);                                                     \
  extern "C" __declspec(dllexport) void name(HWND, int characters, wchar_t*, StackEntry** top, void*) { \
    NsisStack stack(top, characters);                                                                   \
    guarded(stack, [&] { return step##name(stack); });                                                  \
  }                                                                                                     \
  static std::wstring step##name([[maybe_unused]] NsisStack& stack)

/// Begin "setup"|"uninstaller"
ZARN_STEP(Begin) {
  return begin(popProgram(stack));
}

/// Help "setup"|"uninstaller"
ZARN_STEP(Help) {
  return help(popProgram(stack));
}

/// Log TEXT
ZARN_STEP(Log) {
  log(stack.pop());
  return {};
}

/// UninstallerArguments: what the uninstaller is given when setup runs it.
ZARN_STEP(UninstallerArguments) {
  return uninstallerArguments();
}

/// Prepare FOLDER: before the script unpacks into FOLDER\Setup.new.
ZARN_STEP(Prepare) {
  prepareFolders(ProgramFolder(stack.pop()));
  return {};
}

/// Activate FOLDER
ZARN_STEP(Activate) {
  return activate(ProgramFolder(stack.pop()));
}

/// Tidy FOLDER: after Activate, and whatever failed.
ZARN_STEP(Tidy) {
  tidyFolders(ProgramFolder(stack.pop()));
  return {};
}

ZARN_STEP(Start) {
  ServiceRegistration().start();
  return {};
}

/// Unregister: stops the service and removes its registration.
ZARN_STEP(Unregister) {
  ServiceRegistration().remove(ownOptions(Program::Uninstaller).wait);
  return {};
}

/// PurgeLogs: when that was asked for.
ZARN_STEP(PurgeLogs) {
  if (!ownOptions(Program::Uninstaller).purgeLogs) return {};
  purgeLogs();
  DeleteFileW(defaultLogFile().c_str());
  return L"purged";
}
