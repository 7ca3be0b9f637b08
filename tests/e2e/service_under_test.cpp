#include "e2e/service_under_test.h"

#include <sstream>
#include <stdexcept>
#include <thread>

#include "support/temp_directory.h"
#include "util/file_utils.h"

namespace zarn::testing {
namespace {

constexpr wchar_t kName[] = L"ZarnUpdateService";
constexpr wchar_t kProgram[] = LR"("C:\Program Files\Zarn Update Service\ZarnUpdateService.exe")";
constexpr char kPlan[] = R"(C:\zarn-test\plan.txt)";
constexpr char kRuns[] = R"(C:\zarn-test\runs.txt)";

[[noreturn]] void fail(const char* what) {
  throw std::runtime_error(std::string(what) + " failed: " + std::to_string(GetLastError()));
}

}  // namespace

bool waitUntil(const std::function<bool()>& condition, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

std::string stageSetting(const std::string& name) {
  std::istringstream lines(readFile(R"(C:\zarn-test\stage.txt)"));
  for (std::string key, value; std::getline(lines, key, '=') && std::getline(lines, value);) {
    if (key == name) return value;
  }
  throw std::runtime_error("the stage has no " + name);
}

std::string bundle(const std::string& name) {
  return stageSetting("bundles") + "\\" + name;
}

void setProfile(const std::string& text) {
  writeFile(stageSetting("profile"), text);
}

void approveOnly(const std::string& digest) {
  setProfile(R"({"certs": [")" + digest + R"("]})");
}

void OnStage::SetUp() {
  approveOnly(stageSetting("approved_digest"));
  ServiceUnderTest::planInstaller("exit=1641\n");  // succeeds without a restart
  ServiceUnderTest::forgetInstallerRuns();
  service_.start();
}

ServiceUnderTest::ServiceUnderTest() : manager_(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
  if (!manager_) fail("OpenSCManagerW");
  service_.reset(OpenServiceW(manager_.get(), kName, SERVICE_ALL_ACCESS));
  if (!service_) {
    service_.reset(CreateServiceW(manager_.get(), kName, L"Zarn Update Service", SERVICE_ALL_ACCESS,
                                  SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                  kProgram, nullptr, nullptr, nullptr, nullptr, nullptr));
  }
  if (!service_) fail("CreateServiceW");
}

SERVICE_STATUS_PROCESS ServiceUnderTest::status() const {
  SERVICE_STATUS_PROCESS result{};
  DWORD needed = 0;
  const BOOL isRead = QueryServiceStatusEx(service_.get(), SC_STATUS_PROCESS_INFO,
                                           reinterpret_cast<BYTE*>(&result), sizeof(result), &needed);
  if (isRead == 0) fail("QueryServiceStatusEx");
  return result;
}

void ServiceUnderTest::start() {
  // Wine's control manager shows a process that ended without a stopped report as
  // running until it is asked to start it again; Windows' sees the end by itself.
  if (isRunning()) return;
  const std::string lastRunsLog = log();
  if (StartServiceW(service_.get(), 0, nullptr) == 0) fail("StartServiceW");
  if (!waitUntil([&] { return isRunning(); })) fail("waiting for the start");
  // The state is reported just before the listener is up, and before or after the
  // log is rotated.
  const auto listens = [&] {
    const std::string now = log();
    return now != lastRunsLog && now.find("Listening for remote procedure calls...") != std::string::npos;
  };
  if (!waitUntil(listens)) fail("waiting for the listener");
}

bool ServiceUnderTest::isRunning() const {
  const SERVICE_STATUS_PROCESS now = status();
  if (now.dwCurrentState != SERVICE_RUNNING) return false;
  const KernelHandle running(OpenProcess(SYNCHRONIZE, FALSE, now.dwProcessId));
  return running && WaitForSingleObject(running.get(), 0) == WAIT_TIMEOUT;
}

KernelHandle ServiceUnderTest::process() const {
  KernelHandle handle(
      OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION | PROCESS_TERMINATE, FALSE, status().dwProcessId));
  if (!handle) fail("OpenProcess");
  return handle;
}

DWORD ServiceUnderTest::waitForExit(const KernelHandle& process, std::chrono::seconds limit) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(limit).count();
  WaitForSingleObject(process.get(), static_cast<DWORD>(milliseconds));
  DWORD code = STILL_ACTIVE;
  if (GetExitCodeProcess(process.get(), &code) == 0) fail("GetExitCodeProcess");
  return code;
}

void ServiceUnderTest::requestStop() {
  SERVICE_STATUS ignored{};
  if (ControlService(service_.get(), SERVICE_CONTROL_STOP, &ignored) == 0) fail("ControlService");
}

DWORD ServiceUnderTest::stop() {
  const KernelHandle running = process();
  requestStop();
  return waitForExit(running);
}

std::string ServiceUnderTest::logDirectory() {
  return FileUtils::logDirectory(true, false);
}

std::string ServiceUnderTest::log(int number) {
  const std::string suffix = number == 0 ? ".log" : "." + std::to_string(number) + ".log";
  return readFile(FileUtils::join(logDirectory(), "Zarn Update Service" + suffix));
}

bool ServiceUnderTest::waitForLogLine(const std::string& text, int number) {
  return waitUntil([&] { return log(number).find(text) != std::string::npos; });
}

std::string ServiceUnderTest::stagedCopy() {
  return FileUtils::join(FileUtils::toUtf8(boost::filesystem::temp_directory_path()),
                         "ZarnMediaServerUpdate.exe");
}

std::vector<InstallerRun> ServiceUnderTest::installerRuns() {
  std::vector<InstallerRun> runs;
  std::istringstream lines(readFile(kRuns));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string event;
    InstallerRun run;
    fields >> event >> run.who >> run.process >> run.startedMs;
    std::getline(fields >> std::ws, run.commandLine);
    if (event == "start") {
      runs.push_back(run);
      continue;
    }
    for (InstallerRun& started : runs) {
      if (started.process == run.process && started.endedMs == 0) started.endedMs = run.startedMs;
    }
  }
  return runs;
}

void ServiceUnderTest::forgetInstallerRuns() {
  DeleteFileA(kRuns);
}

void ServiceUnderTest::planInstaller(const std::string& lines) {
  writeFile(kPlan, lines);
}

}  // namespace zarn::testing
