#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "plugin/options.h"
#include "plugin/setup_error.h"
#include "trust/account_service_host.h"
#include "util/string_utils.h"

namespace zarn::setup {
namespace {

constexpr int kLongestWaitSeconds = 3600;

struct LocalFreeDeleter {
  void operator()(wchar_t** list) const noexcept { LocalFree(list); }
};

[[noreturn]] void refuse(const std::wstring& argument, const wchar_t* why) {
  throw SetupError(ExitCode::BadArguments, L"The argument \"" + argument + L"\" " + why);
}

bool equal(std::wstring_view left, std::wstring_view right) {
  return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                              static_cast<int>(right.size()), TRUE) == CSTR_EQUAL;
}

/// The value of an argument "NAME=value" with this name, in any case.
std::optional<std::wstring> valueOf(const std::wstring& argument, std::wstring_view name) {
  const auto equals = argument.find(L'=');
  if (equals == std::wstring::npos || !equal(std::wstring_view(argument).substr(0, equals), name)) return {};
  return argument.substr(equals + 1);
}

StartType parseStart(const std::wstring& argument, const std::wstring& value) {
  if (equal(value, L"auto")) return StartType::Automatic;
  if (equal(value, L"demand")) return StartType::Demand;
  refuse(argument, L"must be /START=auto or /START=demand.");
}

std::chrono::seconds parseWait(const std::wstring& argument, const std::wstring& value) {
  const bool digits = value.find_first_not_of(L"0123456789") == std::wstring::npos;
  if (value.empty() || value.size() > 4 || !digits || std::stoi(value) > kLongestWaitSeconds) {
    refuse(argument, L"must name a number of seconds from 0 to 3600.");
  }
  return std::chrono::seconds(std::stoi(value));
}

bool isFullPath(const std::wstring& path) {
  return path.size() > 3 && (path.substr(1, 2) == L":\\" || path.substr(0, 2) == L"\\\\");
}

std::wstring parsePath(const std::wstring& argument, const std::wstring& value) {
  if (!isFullPath(value)) refuse(argument, L"must name a file by its full path.");
  return value;
}

std::vector<std::wstring> ownArguments() {
  int count = 0;
  const std::unique_ptr<wchar_t*, LocalFreeDeleter> list(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!list) throw systemFailure(L"The command line cannot be read", GetLastError());
  return {list.get() + std::min(count, 1), list.get() + count};
}

bool parseSetupOnly(const std::wstring& argument, Options& options) {
  if (equal(argument, L"/UNINSTALL")) {
    options.uninstall = true;
  } else if (const auto start = valueOf(argument, L"/START")) {
    options.start = parseStart(argument, *start);
  } else if (const auto host = valueOf(argument, L"/ACCOUNTHOST")) {
    if (!host->empty() && !isHostWithOptionalPort(StringUtils::utf16to8(*host))) {
      refuse(argument, L"must name a host, or a host and port as host:port.");
    }
    options.accountHost = *host;
  } else if (const auto bundle = valueOf(argument, L"/CABUNDLE")) {
    options.caBundle = bundle->empty() ? *bundle : parsePath(argument, *bundle);
  } else {
    return false;
  }
  return true;
}

bool parseCommon(const std::wstring& argument, Options& options) {
  if (argument == L"/S" || argument == L"/NCRC") return true;
  if (equal(argument, L"/PURGELOGS")) {
    options.purgeLogs = true;
  } else if (argument == L"/?" || equal(argument, L"/HELP")) {
    options.help = true;
  } else if (const auto log = valueOf(argument, L"/LOG")) {
    options.log = parsePath(argument, *log);
  } else if (const auto wait = valueOf(argument, L"/WAIT")) {
    options.wait = parseWait(argument, *wait);
  } else {
    return false;
  }
  return true;
}

}  // namespace

Options parseOptions(Program program, const std::vector<std::wstring>& arguments) {
  Options options;
  for (const auto& argument : arguments) {
    // The uninstaller's own last argument: the folder, unquoted.
    if (program == Program::Uninstaller && argument.starts_with(L"_?=")) break;
    if (argument.starts_with(L"/D=")) {
      refuse(argument, L"is not possible: a service of the system belongs into Program Files.");
    }
    const bool known =
        parseCommon(argument, options) || (program == Program::Setup && parseSetupOnly(argument, options));
    if (!known) refuse(argument, L"is not known; /? lists the arguments.");
  }
  const bool configures = options.start || options.accountHost || options.caBundle;
  if (options.uninstall && configures) {
    throw SetupError(ExitCode::BadArguments,
                     L"The argument /UNINSTALL goes with /PURGELOGS, /WAIT and /LOG only.");
  }
  if (program == Program::Setup && options.purgeLogs && !options.uninstall) {
    throw SetupError(ExitCode::BadArguments, L"The argument /PURGELOGS needs /UNINSTALL.");
  }
  return options;
}

Options ownOptions(Program program) {
  return parseOptions(program, ownArguments());
}

std::wstring ownLog() {
  for (const auto& argument : ownArguments()) {
    const auto log = valueOf(argument, L"/LOG");
    if (log && isFullPath(*log)) return *log;
  }
  return {};
}

const wchar_t* help(Program program) noexcept {
  if (program == Program::Uninstaller) {
    return L"Uninstall.exe [/S] [/PURGELOGS] [/WAIT=SECONDS] [/LOG=FILE]\n\n"
           L"/S: without asking\n"
           L"/PURGELOGS: remove the logs, too\n"
           L"/WAIT: how long to wait for a running update (default 120)\n"
           L"/LOG: where to log";
  }
  return L"ZarnUpdateServiceSetup.exe [/S] [ARGUMENTS]\n\n"
         L"/S: without asking\n"
         L"/START=auto|demand: how the service starts (default auto)\n"
         L"/ACCOUNTHOST=HOST[:PORT]: the account service; empty: the one built in\n"
         L"/CABUNDLE=FILE: who may vouch for it; empty: the list shipped\n"
         L"/UNINSTALL [/PURGELOGS]: remove the service (and its logs)\n"
         L"/WAIT=SECONDS: how long to wait for a running update (default 120)\n"
         L"/LOG=FILE: where to log\n\n"
         L"An upgrade or repair keeps what was set before.\n"
         L"Exit codes: 0 done, 740 no administrator, 1053 installed but not started, 1603 failed, "
         L"1605 not installed, 1618 busy, 1633 wrong system, 1639 wrong arguments; 3010 after an uninstall: "
         L"files in use go with the next reboot.";
}

}  // namespace zarn::setup
