// The process: starts the log, makes the service and hands the main thread to
// the service control manager. Every path but an unknown exception and a log that
// cannot start ends in endProcess(), never in the runtime.
#include <windows.h>

#include <fmt/format.h>

#include <exception>
#include <string>
#include <string_view>

#include "log/event_log.h"
#include "log/log.h"
#include "os/error_text.h"
#include "os/process.h"
#include "service/end_process.h"
#include "system/system_info.h"
#include "update/update_service.h"
#include "util/events.h"
#include "util/exceptions.h"
#include "util/log_win32_error.h"
#include "util/logging.h"
#include "util/policy_settings.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/product_version.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

constexpr char kBuildPlatform[] = "windows-x86_64";

/// DLLs that are loaded from here on come from the system directory only. What
/// the program imports is found before any of its code runs; it imports system
/// libraries only.
Result<void> restrictDllSearch() noexcept {
  return resultOf(SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32) != 0 && SetDllDirectoryW(L"") != 0);
}

template <typename Policy>
void applyMitigation(PROCESS_MITIGATION_POLICY kind, Policy policy, const char* words) {
  if (SetProcessMitigationPolicy(kind, &policy, sizeof(policy)) != FALSE) return;
  logWin32Error(LogLevel::Warn, "A mitigation could not be set: %s", words);
}

/// Asks the system to refuse the process: images from shares and from files of low
/// integrity, DLLs beside a program before those of the system, extension points (hooks
/// and the like), wrong handles (an exception ends the process), and, for now only
/// reported, links that users made. With the environment variable
/// ZARN_MEDIA_SERVER_ENFORCE_REDIRECTION_TRUST set to 1 such links are not followed,
/// which keeps media servers out whose data lies behind one. What the system does not
/// know is logged as a warning; the process goes on without it.
void applyMitigations() {
  PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY links{};
  const bool enforce = environmentVariable(names::kEnforceRedirectionTrustVariable.narrow) == "1";
  links.EnforceRedirectionTrust = enforce ? 1U : 0U;
  links.AuditRedirectionTrust = enforce ? 0U : 1U;
  applyMitigation(ProcessRedirectionTrustPolicy, links, "redirection trust");

  PROCESS_MITIGATION_IMAGE_LOAD_POLICY images{};
  images.NoRemoteImages = 1;
  images.NoLowMandatoryLabelImages = 1;
  images.PreferSystem32Images = 1;
  applyMitigation(ProcessImageLoadPolicy, images, "image loads");

  PROCESS_MITIGATION_EXTENSION_POINT_DISABLE_POLICY extensions{};
  extensions.DisableExtensionPoints = 1;
  applyMitigation(ProcessExtensionPointDisablePolicy, extensions, "extension points");

  PROCESS_MITIGATION_STRICT_HANDLE_CHECK_POLICY handles{};
  handles.RaiseExceptionOnInvalidHandleReference = 1;
  handles.HandleExceptionsPermanentlyEnabled = 1;
  applyMitigation(ProcessStrictHandleCheckPolicy, handles, "strict handles");
}

/// `reason` is empty when the code has its own words.
void reportFailedStart(std::uint32_t code, std::string_view reason = {}) noexcept {
  quietly([&] {
    const std::string words = reason.empty() ? describeSystemError(code) : std::string(reason);
    reportEvent<EventId::StartFailed>(std::to_string(code), words);
  });
}

/// Says what an administrator's policy has set, never its values: a proxy's address may hold
/// a password. A process that could not take it up must not go on with other settings.
void logPolicy(const Result<PolicyEffect>& policy) {
  if (!policy) {
    logSystemFailure(LogLevel::Error, policy.error(), "The policy's settings could not be applied.");
    reportFailedStart(policy.error().code());
    endProcess(policy.error().code());
  }
  for (const auto& warning : policy->warnings) logLine(LogLevel::Warn, "%s", warning);
  if (!policy->inForce.empty()) {
    logLine(LogLevel::Info, "Set by policy: %s", fmt::format("{}", fmt::join(policy->inForce, ", ")));
  }
}

/// The first lines of every log file.
void writeBanner() {
  std::string vendor;
  std::string device;
  std::string model;
  getPlatformInfo(vendor, device, model);
  logLine(LogLevel::Info, "Zarn Update Service v%s - %s %s %s - build: %s", std::string_view(kVersion),
          printable(vendor), printable(device), printable(model), std::string_view(kBuildPlatform));
  logOSInformation();
  logProcessorInformation();
  logLine(LogLevel::Debug, "%s", printable(StringUtils::utf16to8(GetCommandLineW())));
}

/// Looking up the collector's name may take longer than the control manager waits
/// for this process to connect, so it has a thread of its own.
void startNetworkLogging(Log& log) noexcept {
  const auto configure = [&log]() noexcept {
    try {
      log.configureNetworkLoggingFromEnvironment();
    } catch (const std::exception&) {
      // Out of memory: the service works without the collector.
    }
  };
  try {
    if (Log::isNetworkLoggingConfigured()) os::startUnawaited(configure);
  } catch (const std::exception& error) {
    quietly(
        [&] { logLine(LogLevel::Error, "Error enabling networked logging: %s.", printable(error.what())); });
  }
}

/// Ends the process with 0 after a clean stop and after a standard exception
/// alike; lets any other exception end it in the runtime's way.
[[noreturn]] void runService() {
  try {
    logLine(LogLevel::Debug, "Creating UpdateService singleton");
    UpdateService::instance().setUnfinishedRoutine([](std::uint32_t code, std::string_view reason) {
      reportFailedStart(code, reason);
      endProcess(code);
    });
    const std::uint32_t code = UpdateService::instance().runAsService(names::kService.narrow);
    if (code != 0) reportFailedStart(code);
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "Error: Shutting down due to exception: %s, type: %s", printable(error.what()),
              typeName(error));
    });
    reportEvent<EventId::FatalEnd>("0", error.what());
  } catch (...) {
    quietly([] { logLine(LogLevel::Error, "Error: Unknown exception, exiting"); });
    reportEvent<EventId::FatalEnd>("", "an unknown exception");
    shutLoggerDown();
    throw;
  }
  endProcess(0);
}

/// What a log that cannot start throws ends the process in the runtime's way.
void startLog(Log& log) {
  try {
    log.start(names::kLog.narrow);
  } catch (const std::exception& error) {
    reportEvent<EventId::FatalEnd>("", error.what());
    flushEvents(kLastEventsLimit);
    throw;
  }
}

}  // namespace
}  // namespace zarn

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  const auto restricted = zarn::restrictDllSearch();  // before there is a log to say how it went
  const auto policy = zarn::applyPolicySettings();    // before anybody reads the environment
  // A runtime that ends the process in its own way must not ask anybody with a
  // message box; nobody could answer it.
  _set_error_mode(_OUT_TO_STDERR);

  zarn::setEventSink(&zarn::systemEventReporter());
  zarn::Log& log = zarn::Log::instance();
  log.setFileOpenedRoutine(zarn::writeBanner);
  zarn::startLog(log);
  zarn::logLine(zarn::LogLevel::Debug, "Main Thread");
  if (!restricted) {
    zarn::logSystemFailure(zarn::LogLevel::Error, restricted.error(),
                           "The DLL search could not be restricted.");
  }
  zarn::logPolicy(policy);
  zarn::applyMitigations();
  zarn::startNetworkLogging(log);
  zarn::runService();
}
