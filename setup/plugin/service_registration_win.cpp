#include <algorithm>
#include <array>
#include <thread>

#include "plugin/service_registration.h"
#include "plugin/setup_error.h"
#include "util/product_names.h"

namespace zarn::setup {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr wchar_t kDescription[] = L"Installs signed updates of the Zarn Media Server.";
constexpr wchar_t kAccount[] = L"LocalSystem";
constexpr wchar_t kMachineEnvironment[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";

constexpr milliseconds kPollInterval(200);
// An idle service that was asked to stop does so well within this.
constexpr seconds kStopGrace(20);
constexpr seconds kStartLimit(30);

// The first restart is the one after an update; the later ones slow a service
// down that keeps ending. A day without an end starts the count anew.
constexpr DWORD kFirstDelayMs = 1'000;
constexpr DWORD kSecondDelayMs = 5'000;
constexpr DWORD kLaterDelayMs = 60'000;
constexpr DWORD kResetPeriodSeconds = 24 * 60 * 60;

std::wstring quoted(const std::wstring& path) {
  return L'"' + path + L'"';
}

std::wstring machineTempFolder() {
  std::array<wchar_t, MAX_PATH> value{};
  auto bytes = static_cast<DWORD>(sizeof(value));
  RegGetValueW(HKEY_LOCAL_MACHINE, kMachineEnvironment, L"TMP", RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ, nullptr,
               value.data(), &bytes);
  return value.data();
}

std::wstring ownTempFolder() {
  std::array<wchar_t, MAX_PATH + 1> value{};
  GetTempPathW(static_cast<DWORD>(value.size()), value.data());
  return value.data();
}

/// The service keeps the installer it runs open against writing.
bool isHeldOpen(const std::wstring& file) {
  const FileHandle probe(CreateFileW(file.c_str(), GENERIC_WRITE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                     OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  return !probe && GetLastError() == ERROR_SHARING_VIOLATION;
}

KernelHandle processOf(const SERVICE_STATUS_PROCESS& status) {
  if (status.dwProcessId == 0) return {};
  return KernelHandle(OpenProcess(SYNCHRONIZE, FALSE, status.dwProcessId));
}

bool hasLiveProcess(const SERVICE_STATUS_PROCESS& status) {
  if (status.dwProcessId == 0) return false;
  const KernelHandle process = processOf(status);
  return process ? WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT
                 : GetLastError() != ERROR_INVALID_PARAMETER;
}

/// Also when it never reported its end: its process is gone, as after an update. Not every
/// service control manager draws that conclusion.
bool hasEnded(const SERVICE_STATUS_PROCESS& status) {
  return status.dwCurrentState == SERVICE_STOPPED ||
         (status.dwCurrentState != SERVICE_START_PENDING && !hasLiveProcess(status));
}

SetupError busy(const std::wstring& sentence) {
  return SetupError(ExitCode::Busy, sentence);
}

SetupError registrationFailure(const std::wstring& what, DWORD error) {
  if (error == ERROR_SERVICE_MARKED_FOR_DELETE) {
    return SetupError(ExitCode::Failed,
                      L"The service is still being removed: close the Services console and run setup again.");
  }
  return systemFailure(what, error);
}

DWORD systemStartType(StartType start) {
  return start == StartType::Automatic ? SERVICE_AUTO_START : SERVICE_DEMAND_START;
}

}  // namespace

ServiceRegistration::ServiceRegistration()
    : manager_(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE)) {
  if (!manager_) throw systemFailure(L"The service control manager cannot be reached", GetLastError());
  service_.reset(OpenServiceW(manager_.get(), names::kService.wide, SERVICE_ALL_ACCESS));
  if (!service_ && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) {
    throw systemFailure(L"The service cannot be opened", GetLastError());
  }
}

SERVICE_STATUS_PROCESS ServiceRegistration::status() const {
  SERVICE_STATUS_PROCESS result{};
  DWORD needed = 0;
  if (QueryServiceStatusEx(service_.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&result),
                           sizeof(result), &needed) == 0) {
    throw systemFailure(L"The state of the service cannot be read", GetLastError());
  }
  return result;
}

std::optional<ServiceRegistration::Configuration> ServiceRegistration::configuration() const {
  if (!exists()) return {};
  // The largest answer there is, by the system's own word.
  constexpr std::size_t largestBytes = 8192;
  using Buffer = std::vector<std::uint64_t>;
  Buffer buffer(largestBytes / sizeof(std::uint64_t));
  auto* const answer = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  DWORD needed = 0;
  if (QueryServiceConfigW(service_.get(), answer, static_cast<DWORD>(largestBytes), &needed) == 0) {
    throw systemFailure(L"The registration of the service cannot be read", GetLastError());
  }
  Configuration result{answer->lpBinaryPathName,
                       answer->lpServiceStartName,
                       answer->dwStartType,
                       readServiceEnvironment(),
                       {}};
  constexpr std::array<DWORD, 3> levels{SERVICE_CONFIG_DESCRIPTION, SERVICE_CONFIG_FAILURE_ACTIONS,
                                        SERVICE_CONFIG_FAILURE_ACTIONS_FLAG};
  for (const DWORD level : levels) {
    // What a system does not tell is not put back.
    if (QueryServiceConfig2W(service_.get(), level, reinterpret_cast<BYTE*>(buffer.data()),
                             static_cast<DWORD>(largestBytes), &needed) != 0) {
      result.more.emplace_back(level, std::exchange(buffer, Buffer(buffer.size())));
    }
  }
  return result;
}

bool ServiceRegistration::isRunning() const {
  if (!exists()) return false;
  const SERVICE_STATUS_PROCESS now = status();
  return !hasEnded(now) && now.dwCurrentState != SERVICE_STOP_PENDING;
}

bool ServiceRegistration::startsAutomatically() const {
  const auto now = configuration();
  return now && now->startType == SERVICE_AUTO_START;
}

bool ServiceRegistration::isInstalling() const {
  const Environment own = readServiceEnvironment();
  const std::array folders{variable(own, L"TMP"), machineTempFolder(), ownTempFolder()};
  return std::ranges::any_of(folders, [](const std::wstring& folder) {
    return !folder.empty() && isHeldOpen(folder + L"\\" + names::kStagedInstaller.wide);
  });
}

void ServiceRegistration::stop(seconds limit) const {
  if (!exists()) return;
  const KernelHandle process = processOf(status());
  auto deadline = Clock::now() + limit;
  bool asked = false;
  for (SERVICE_STATUS_PROCESS now = status(); !hasEnded(now); now = status()) {
    const bool installing = !asked && isInstalling();
    if (!asked && !installing && now.dwCurrentState == SERVICE_RUNNING) {
      SERVICE_STATUS ignored{};
      asked = ControlService(service_.get(), SERVICE_CONTROL_STOP, &ignored) != 0;
      if (asked) deadline = std::max(deadline, Clock::now() + kStopGrace);
    }
    if (Clock::now() >= deadline) {
      if (installing) throw busy(L"The service is installing an update: run this again when that has ended.");
      throw busy(L"The service (process " + std::to_wstring(now.dwProcessId) +
                 L") does not stop: run this again when it has ended.");
    }
    std::this_thread::sleep_for(kPollInterval);
  }
  // Its program can be replaced only when the process is gone.
  const auto graceMs = static_cast<DWORD>(milliseconds(kStopGrace).count());
  if (process && WaitForSingleObject(process.get(), graceMs) != WAIT_OBJECT_0) {
    throw busy(L"The service has stopped but its process has not ended: run this again when it has.");
  }
}

void ServiceRegistration::start() const {
  const std::wstring what = L"The service is installed but did not start";
  const auto endDeadline = Clock::now() + kStopGrace;
  for (auto now = status();
       now.dwCurrentState == SERVICE_STOP_PENDING && !hasEnded(now) && Clock::now() < endDeadline;
       now = status()) {
    std::this_thread::sleep_for(kPollInterval);
  }
  if (StartServiceW(service_.get(), 0, nullptr) == 0 && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
    throw SetupError(ExitCode::NotStarted, systemFailure(what, GetLastError()).sentence());
  }
  const auto deadline = Clock::now() + kStartLimit;
  for (SERVICE_STATUS_PROCESS now = status(); now.dwCurrentState != SERVICE_RUNNING; now = status()) {
    if (hasEnded(now)) {
      throw SetupError(ExitCode::NotStarted, systemFailure(what, now.dwWin32ExitCode).sentence());
    }
    if (Clock::now() >= deadline) {
      throw SetupError(ExitCode::NotStarted, what + L" within 30 seconds; its log says why.");
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

void ServiceRegistration::apply(const ServiceSettings& settings) {
  before_ = configuration();
  applied_ = true;
  if (before_) {
    change(settings);
  } else {
    create(settings);
  }
  describe();
  restartWhenEnded();
  Environment environment = readServiceEnvironment();
  setVariable(environment, L"TMP", settings.tempFolder);
  setVariable(environment, L"TEMP", settings.tempFolder);
  if (settings.accountHost)
    setVariable(environment, names::kAccountServiceHostVariable.wide, *settings.accountHost);
  writeServiceEnvironment(environment);
}

void ServiceRegistration::undo() noexcept {
  if (!std::exchange(applied_, false)) return;
  if (before_) {
    restore(*before_);
  } else if (exists()) {
    DeleteService(service_.get());
    service_.reset();
  }
}

void ServiceRegistration::create(const ServiceSettings& settings) {
  service_.reset(CreateServiceW(
      manager_.get(), names::kService.wide, names::kDisplayName.wide, SERVICE_ALL_ACCESS,
      SERVICE_WIN32_OWN_PROCESS, systemStartType(settings.start.value_or(StartType::Automatic)),
      SERVICE_ERROR_NORMAL, quoted(settings.program).c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
  if (!service_) throw registrationFailure(L"The service cannot be registered", GetLastError());
}

void ServiceRegistration::change(const ServiceSettings& settings) const {
  const DWORD start = settings.start ? systemStartType(*settings.start) : SERVICE_NO_CHANGE;
  if (ChangeServiceConfigW(service_.get(), SERVICE_WIN32_OWN_PROCESS, start, SERVICE_ERROR_NORMAL,
                           quoted(settings.program).c_str(), nullptr, nullptr, nullptr, kAccount, nullptr,
                           names::kDisplayName.wide) == 0) {
    throw registrationFailure(L"The service's registration cannot be changed", GetLastError());
  }
}

void ServiceRegistration::describe() const {
  std::wstring text = kDescription;
  SERVICE_DESCRIPTIONW description{text.data()};
  if (ChangeServiceConfig2W(service_.get(), SERVICE_CONFIG_DESCRIPTION, &description) == 0) {
    throw systemFailure(L"The service cannot be described", GetLastError());
  }
}

void ServiceRegistration::restartWhenEnded() const {
  std::array<SC_ACTION, 3> steps{{{SC_ACTION_RESTART, kFirstDelayMs},
                                  {SC_ACTION_RESTART, kSecondDelayMs},
                                  {SC_ACTION_RESTART, kLaterDelayMs}}};
  SERVICE_FAILURE_ACTIONSW actions{};
  actions.dwResetPeriod = kResetPeriodSeconds;
  actions.cActions = static_cast<DWORD>(steps.size());
  actions.lpsaActions = steps.data();
  // Also when it reports that it stopped, but with an exit code.
  SERVICE_FAILURE_ACTIONS_FLAG flag{TRUE};
  if (ChangeServiceConfig2W(service_.get(), SERVICE_CONFIG_FAILURE_ACTIONS, &actions) == 0) {
    throw systemFailure(L"The service's restart cannot be arranged", GetLastError());
  }
  // Systems that do not know the flag say so with ERROR_INVALID_LEVEL.
  if (ChangeServiceConfig2W(service_.get(), SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &flag) == 0 &&
      GetLastError() != ERROR_INVALID_LEVEL) {
    throw systemFailure(L"The service's restart cannot be arranged", GetLastError());
  }
}

void ServiceRegistration::restore(Configuration& before) const noexcept {
  // By itself: some accounts cannot be set again without their password.
  ChangeServiceConfigW(service_.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, nullptr,
                       nullptr, nullptr, nullptr, before.account.c_str(), nullptr, nullptr);
  for (auto& [level, settings] : before.more) ChangeServiceConfig2W(service_.get(), level, settings.data());
  ChangeServiceConfigW(service_.get(), SERVICE_NO_CHANGE, before.startType, SERVICE_NO_CHANGE,
                       before.commandLine.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  try {
    writeServiceEnvironment(before.environment);
  } catch (const std::exception&) {
    // The failure that brought us here is the one to report.
  }
}

void ServiceRegistration::remove(seconds limit) {
  if (!exists()) return;
  stop(limit);
  if (DeleteService(service_.get()) == 0 && GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE) {
    throw systemFailure(L"The service's registration cannot be removed", GetLastError());
  }
  service_.reset();
}

}  // namespace zarn::setup
