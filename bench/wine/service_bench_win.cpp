// service_bench cell=install path=BUNDLE                 the service installs the bundle
// service_bench cell=bare path=BUNDLE target=COPY small=SMALL-BUNDLE
//                                                        the least that an install is made of
// service_bench cell=start service=NAME                  start, wait until it runs, stop
// service_bench cell=preferences reads=N                 the store of the service
// service_bench cell=registry reads=N                    the registry calls below it
#include <windows.h>

#include <softpub.h>
#include <wintrust.h>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "client/update_client.h"
#include "measure.h"
#include "os/handles.h"
#include "os/handles_win.h"
#include "prefs/win_preferences.h"
#include "util/string_utils.h"

namespace zarn::bench {
namespace {

struct ServiceHandleTraits {
  using Handle = SC_HANDLE;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { CloseServiceHandle(handle); }
};
using ServiceHandle = ScopedHandle<ServiceHandleTraits>;

double milliseconds(Clock::duration duration) {
  return seconds(duration) * 1e3;
}

// ---- Installs --------------------------------------------------------------------

constexpr char kInstallerRecord[] = R"(C:\zarn-test\runs.txt)";

/// What the stand-in installer noted: one run, and how long its main() took.
double installerMilliseconds() {
  std::ifstream record(kInstallerRecord);
  std::vector<double> times;
  std::string event;
  std::string who;
  std::string process;
  double time = 0;
  for (std::string line; std::getline(record, line);) {
    std::istringstream(line) >> event >> who >> process >> time;
    require(who == "genuine", "another installer ran");
    times.push_back(time);
  }
  require(times.size() == 2, "the installer did not run once");
  return times[1] - times[0];
}

/// The plan of the stand-in installer has it end with 1641, after which the
/// service lives on.
void install(const Options& options) {
  DeleteFileA(kInstallerRecord);
  const std::wstring path = StringUtils::utf8to16(options.text("path"));
  const auto start = Clock::now();
  const auto answer = client::UpdateClient().install(path);
  const double total = milliseconds(Clock::now() - start);
  require(answer.ok() && answer.value().status == client::kRebootInitiated &&
              answer.value().installerExitCode == ERROR_SUCCESS_REBOOT_INITIATED,
          "the bundle was not installed");
  // What the system needs to make the installer's process counts as the service's.
  report("own_ms", total - installerMilliseconds());
}

bool isTrusted(const std::wstring& path) {
  WINTRUST_FILE_INFO file{};
  file.cbStruct = sizeof(file);
  file.pcwszFilePath = path.c_str();
  WINTRUST_DATA data{};
  data.cbStruct = sizeof(data);
  data.dwUIChoice = WTD_UI_NONE;
  data.fdwRevocationChecks = WTD_REVOKE_WHOLECHAIN;
  data.dwUnionChoice = WTD_CHOICE_FILE;
  data.pFile = &file;
  data.dwProvFlags = WTD_REVOCATION_CHECK_CHAIN;
  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  return WinVerifyTrust(nullptr, &action, &data) == 0;
}

void bare(const Options& options) {
  const std::wstring path = StringUtils::utf8to16(options.text("path"));
  const std::wstring target = StringUtils::utf8to16(options.text("target"));
  // The first check of a process loads the trust provider; the service, which has
  // installed before, is not charged for that either.
  require(isTrusted(StringUtils::utf8to16(options.text("small"))), "the small bundle is not trusted");
  const auto start = Clock::now();
  require(CopyFileExW(path.c_str(), target.c_str(), nullptr, nullptr, nullptr, 0) != 0, "the copy failed");
  const auto copied = Clock::now();
  require(isTrusted(target), "the copy is not trusted");
  const auto verified = Clock::now();
  report("copy_ms", milliseconds(copied - start));
  report("verify_ms", milliseconds(verified - copied));
  report("own_ms", milliseconds(verified - start));
  require(std::filesystem::file_size(target) == std::filesystem::file_size(path), "the copy is not whole");
  require(DeleteFileW(target.c_str()) != 0, "the copy stays");
}

// ---- Start -----------------------------------------------------------------------

SERVICE_STATUS_PROCESS query(const ServiceHandle& service) {
  SERVICE_STATUS_PROCESS status{};
  DWORD needed = 0;
  require(QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                               sizeof(status), &needed) != 0,
          "no status");
  return status;
}

template <typename Condition>
void waitUntil(Condition condition, std::string_view what) {
  const auto deadline = Clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    require(Clock::now() < deadline, what);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

/// A control that comes before the service listens is refused.
bool requestStop(const ServiceHandle& service) {
  SERVICE_STATUS ignored{};
  return ControlService(service.get(), SERVICE_CONTROL_STOP, &ignored) != 0;
}

void startService(const Options& options) {
  const std::wstring name = StringUtils::utf8to16(options.text("service"));
  const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  const ServiceHandle service(OpenServiceW(manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
  require(service && query(service).dwCurrentState == SERVICE_STOPPED,
          "the service is not there, or runs already");

  const auto start = Clock::now();
  require(StartServiceW(service.get(), 0, nullptr) != 0, "the service does not start");
  waitUntil([&] { return query(service).dwCurrentState == SERVICE_RUNNING; }, "the service does not run");
  report("start_ms", milliseconds(Clock::now() - start));

  const KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, query(service).dwProcessId));
  waitUntil([&] { return requestStop(service); }, "the service takes no stop control");
  WaitForSingleObject(process.get(), 30'000);
  waitUntil([&] { return query(service).dwCurrentState == SERVICE_STOPPED; }, "the service does not stop");
}

// ---- Preferences -----------------------------------------------------------------

constexpr char kPreference[] = "ZarnOnlineUsername";
constexpr char kValue[] = "somebody@zarn.example";

void reportReads(Clock::time_point start, std::size_t reads) {
  const double duration = seconds(Clock::now() - start);
  report("total_us", duration * 1e6);
  report("read_us", duration * 1e6 / static_cast<double>(reads));
}

void preferences(const Options& options) {
  const std::size_t reads = options.number("reads");
  WinPreferences store;
  store.registerCatalogue();
  store.setStringValue(kPreference, kValue);
  const auto start = Clock::now();
  for (std::size_t i = 0; i < reads; ++i) require(store.getString(kPreference) == kValue, "a wrong value");
  reportReads(start, reads);
}

void registry(const Options& options) {
  const std::size_t reads = options.number("reads");
  WinPreferences().setStringValue(kPreference, kValue);
  const auto start = Clock::now();
  for (std::size_t i = 0; i < reads; ++i) {
    HKEY key = nullptr;
    std::array<wchar_t, 64> text{};
    auto bytes = static_cast<DWORD>(sizeof(text));
    RegOpenKeyExW(HKEY_CURRENT_USER, LR"(Software\Zarn, Inc.\Zarn Media Server)", 0, KEY_READ, &key);
    const LSTATUS status = RegQueryValueExW(key, L"ZarnOnlineUsername", nullptr, nullptr,
                                            reinterpret_cast<BYTE*>(text.data()), &bytes);
    RegCloseKey(key);
    require(status == ERROR_SUCCESS && bytes / sizeof(wchar_t) == sizeof(kValue), "a wrong value");
  }
  reportReads(start, reads);
}

void measure(const Options& options) {
  struct Cell {
    std::string_view name;
    void (*run)(const Options&);
  };
  static constexpr std::array<Cell, 5> kCells = {{{"install", install},
                                                  {"bare", bare},
                                                  {"start", startService},
                                                  {"preferences", preferences},
                                                  {"registry", registry}}};
  byName(kCells, options.text("cell")).run(options);
}

}  // namespace
}  // namespace zarn::bench

int main(int count, char** arguments) {
  return zarn::bench::runBenchmark(count, arguments, zarn::bench::measure);
}
