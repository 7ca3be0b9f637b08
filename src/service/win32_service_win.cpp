#include <array>
#include <atomic>
#include <exception>
#include <stdexcept>
#include <utility>

#include "os/error_text.h"
#include "service/win32_service.h"
#include "util/events.h"
#include "util/exceptions.h"
#include "util/log_win32_error.h"
#include "util/logging.h"
#include "util/mutex.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

constexpr DWORD kStartWaitHintMilliseconds = 1000;

class WindowsServiceControl final : public ServiceControl {
 public:
  Result<void> startDispatcher(const SERVICE_TABLE_ENTRYW* services) override {
    return resultOf(StartServiceCtrlDispatcherW(services) != 0);
  }
  Result<SERVICE_STATUS_HANDLE> registerHandler(const wchar_t* name, LPHANDLER_FUNCTION_EX handler) override {
    const SERVICE_STATUS_HANDLE handle = RegisterServiceCtrlHandlerExW(name, handler, nullptr);
    if (handle == nullptr) return lastFailure();
    return handle;
  }
  Result<void> setStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS& status) override {
    return resultOf(SetServiceStatus(handle, &status) != 0);
  }
};

WindowsServiceControl windowsControl;
std::atomic<ServiceControl*> inUse{&windowsControl};

Mutex registrationMutex;
/// Held from the stopped report to the line after it. The report lets the dispatcher
/// return, which ends the process; the line would be lost.
Mutex lastLineMutex;
// Read by the dispatcher's threads while the mutex is held by runAsService().
std::atomic<Win32Service*> registered{nullptr};

void WINAPI serviceMainRoutine(DWORD, LPWSTR*) {
  Win32Service& service = *registered.load();
  service.serviceMain();
  service.endUnfinished();
}

/// Called from system code, through which no exception may pass.
DWORD WINAPI controlRoutine(DWORD control, DWORD, LPVOID, LPVOID) {
  try {
    registered.load()->serviceCtrlHandler(control);
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "Win32Service::serviceCtrlHandler: Caught std::exception %s, type: %s",
              printable(error.what()), typeName(error));
    });
  } catch (...) {
    quietly([] {
      logLine(LogLevel::Error, "Win32Service::serviceCtrlHandler: Caught an exception of unknown type");
    });
  }
  return NO_ERROR;
}

/// Codes appear in the log as signed numbers.
std::int32_t shown(std::uint32_t code) {
  return static_cast<std::int32_t>(code);
}

/// A report with no controls accepted and everything else 0.
SERVICE_STATUS statusOf(DWORD state) {
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  return status;
}

}  // namespace

ServiceControl& ServiceControl::current() noexcept {
  return *inUse.load();
}

void ServiceControl::use(ServiceControl* control) noexcept {
  inUse.store(control != nullptr ? control : &windowsControl);
}

void Win32Service::forgetRegistered() noexcept {
  registered.store(nullptr);
}

std::uint32_t Win32Service::runAsService(std::string_view name) {
  const MutexLock lock(registrationMutex);
  if (registered.load() != nullptr) {
    throw std::logic_error("Only one Win32Service may be instantiated in a process.");
  }
  name_ = StringUtils::utf8to16(name);
  registered.store(this);

  // A process of one service: the control manager ignores the name in the table, which is
  // not const only because the structure lacks it.
  std::array<wchar_t, 1> noName = {L'\0'};
  const std::array<SERVICE_TABLE_ENTRYW, 2> services = {
      {{noName.data(), serviceMainRoutine}, {nullptr, nullptr}}};
  // Blocks while the service lives, on the process's first thread; serviceMain() runs on a
  // thread of the dispatcher's, and controls arrive here.
  const auto dispatched = ServiceControl::current().startDispatcher(services.data());
  if (dispatched) {
    const MutexLock lastLineIsWritten(lastLineMutex);
    return 0;
  }
  return logSystemFailure(LogLevel::Error, dispatched.error(),
                          "Win32Service::runAsService() - StartServiceCtrlDispatcher() failed");
}

void Win32Service::serviceMain() {
  logLine(LogLevel::Debug, "Win32Service::serviceMain: RegisterServiceCtrlHandlerEx");
  const auto registration = ServiceControl::current().registerHandler(name_.c_str(), controlRoutine);
  if (!registration) {
    logSystemFailure(LogLevel::Debug, registration.error(),
                     "Win32Service::serviceMain: RegisterServiceCtrlHandlerExW(), "
                     "RegisterServiceCtrlHandlerExW() failed.");
    return;
  }
  statusHandle_ = *registration;
  if (sendServiceStartPending() != 0) return;
  // After a failed start no stopped report is sent, on purpose: the service stays
  // start-pending until its process is ended, by endUnfinished() or from outside.
  if (!initializeGuarded()) {
    logLine(LogLevel::Error, "Exiting Win32Service::serviceMain due to initialization failure.");
    return;
  }
  if (sendServiceRunning() != 0) {
    logLine(LogLevel::Debug, "Win32Service::serviceMain: Failed entering Running state, aborting");
    return;
  }
  const std::uint32_t exitCode = runGuarded();
  if (exitCode != 0) {
    quietly([exitCode] {
      reportEvent<EventId::FatalEnd>(std::to_string(exitCode), describeSystemError(exitCode));
    });
  }
  const MutexLock lastLine(lastLineMutex);
  isFinished_ = sendServiceStopped(exitCode) == 0;
  logLine(LogLevel::Debug, "Win32Service::serviceMain: Service stopped with exitcode %d", shown(exitCode));
}

void Win32Service::setUnfinishedRoutine(UnfinishedRoutine routine) {
  unfinishedRoutine_ = std::move(routine);
}

void Win32Service::endUnfinished() {
  if (!isFinished_ && unfinishedRoutine_) unfinishedRoutine_(unfinishedCode_, unfinishedReason_);
}

bool Win32Service::initializeGuarded() {
  logLine(LogLevel::Debug, "Win32Service::serviceMain: Call initialize()");
  try {
    const std::uint32_t code = initialize();
    if (code != 0) {
      unfinishedCode_ = code;
      logLine(LogLevel::Error, "Win32Service::serviceMain: initialize() failure: %d, %s", shown(code),
              systemErrorPhrase(code));
    }
    logLine(LogLevel::Debug, "Win32Service::serviceMain: Finished initialize()");
    return code == 0;
  } catch (const std::exception& error) {
    logLine(LogLevel::Error, "Win32Service::serviceMain: Caught std::exception %s, type: %s",
            printable(error.what()), typeName(error));
    quietly([&] { unfinishedReason_ = error.what(); });
    return false;
  }
}

std::uint32_t Win32Service::runGuarded() {
  logLine(LogLevel::Debug, "Win32Service::serviceMain: Call run()");
  try {
    const std::uint32_t exitCode = run();
    logLine(LogLevel::Debug, "Win32Service::serviceMain: Finished run()");
    return exitCode;
  } catch (const std::exception& error) {
    logLine(LogLevel::Error, "Win32Service::serviceMain: Caught std::exception %s, type: %s",
            printable(error.what()), typeName(error));
    reportEvent<EventId::FatalEnd>("0", error.what());
    return 0;
  }
}

std::uint32_t Win32Service::serviceCtrlHandler(std::uint32_t control) {
  switch (control) {
    case SERVICE_CONTROL_STOP:
      logLine(LogLevel::Debug, "Win32Service::serviceCtrlHandler: Received SERVICE_CONTROL_STOP");
      if (status_.dwCurrentState == SERVICE_RUNNING) {
        stopRunning();
        return NO_ERROR;
      }
      logLine(LogLevel::Debug,
              "Win32Service::serviceCtrlHandler: Service not running (!SERVICE_RUNNING), "
              "ignoring SERVICE_CONTROL_STOP");
      break;
    case SERVICE_CONTROL_INTERROGATE:
      logLine(LogLevel::Debug, "Win32Service::serviceCtrlHandler: Received SERVICE_CONTROL_INTERROGATE");
      return NO_ERROR;
    default:
      break;
  }
  logLine(LogLevel::Debug, "Win32Service::serviceCtrlHandler: Received  %d (Not Implemented)",
          shown(control));
  return ERROR_CALL_NOT_IMPLEMENTED;
}

void Win32Service::stopRunning() {
  sendServiceStopPending();
  logLine(LogLevel::Debug, "Win32Service::serviceCtrlHandler: Call stop()");
  if (const std::uint32_t code = stop(); code != 0) {
    logLine(LogLevel::Debug, "Win32Service::serviceCtrlHandler: stop() error, %d, %s", shown(code),
            systemErrorPhrase(code));
  }
  logLine(LogLevel::Debug, "Win32Service::serviceCtrlHandler: Finished stop()");
}

std::uint32_t Win32Service::sendServiceStartPending() {
  logLine(LogLevel::Debug, "Win32Service::sendServiceStartPending - SERVICE_START_PENDING");
  SERVICE_STATUS status = statusOf(SERVICE_START_PENDING);
  status.dwCheckPoint = status_.dwCheckPoint + 1;
  status.dwWaitHint = kStartWaitHintMilliseconds;
  return report(status, "sendServiceStartPending");
}

std::uint32_t Win32Service::sendServiceRunning() {
  logLine(LogLevel::Debug, "Win32Service::sendServiceRunning - SERVICE_RUNNING");
  SERVICE_STATUS status = statusOf(SERVICE_RUNNING);
  status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
  return report(status, "sendServiceRunning");
}

std::uint32_t Win32Service::sendServiceStopPending() {
  logLine(LogLevel::Debug, "Win32Service::sendServiceStopPending - SERVICE_STOP_PENDING");
  SERVICE_STATUS status = statusOf(SERVICE_STOP_PENDING);
  status.dwCheckPoint = status_.dwCheckPoint + 1;
  return report(status, "sendServiceStopPending");
}

std::uint32_t Win32Service::sendServiceStopped(std::uint32_t exitCode) {
  logLine(LogLevel::Debug, "Win32Service::sendServiceStopped - SERVICE_STOPPED");
  SERVICE_STATUS status = statusOf(SERVICE_STOPPED);
  status.dwWin32ExitCode = exitCode;
  return report(status, "sendServiceStopped");
}

std::uint32_t Win32Service::report(const SERVICE_STATUS& status, const char* operation) {
  status_ = status;
  const auto reported = ServiceControl::current().setStatus(statusHandle_, status_);
  if (reported) return 0;
  return logSystemFailure(LogLevel::Debug, reported.error(), "Win32Service::%s() - SetServiceStatus() failed",
                          std::string_view(operation));
}

}  // namespace zarn
