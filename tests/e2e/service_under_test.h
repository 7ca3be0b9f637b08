// The installed service as an administrator and the media server see it: through
// the service control manager, its files, its log and the caller's library.
#pragma once

#include <windows.h>

#include "client/service_call.h"
#include "os/handles_win.h"
#include "support/test.h"
#include "util/string_utils.h"

namespace zarn::testing {

/// Status and exit code, or neither when no answer came.
struct Answer {
  std::optional<long> status, exitCode;
  friend bool operator==(const Answer&, const Answer&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    return out << "status " << answer.status.value_or(-1) << ", exit code " << answer.exitCode.value_or(-1);
  }
};

// As a caller without the client's own refusals: what the service does with bad paths is seen here.
inline Answer install(const std::string& path) {
  const client::Reply reply = client::callService(client::Request::Install, StringUtils::utf8to16(path));
  return reply.ending == client::Ending::Answered ? Answer{reply.status, reply.exitCode} : Answer{};
}
inline std::optional<long> check(const std::string& path) {
  const client::Reply reply = client::callService(client::Request::Check, StringUtils::utf8to16(path));
  return reply.ending == client::Ending::Answered ? std::optional<long>(reply.status) : std::nullopt;
}
inline bool setAppDataPath(const std::string& path) {
  return client::callService(client::Request::SetAppData, StringUtils::utf8to16(path)).ending ==
         client::Ending::Answered;
}

/// Polls until `condition` holds; false when twenty seconds have passed without it.
inline bool waitUntil(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

/// What prepare.py wrote of the stage.
inline std::string stageSetting(const std::string& name) {
  std::istringstream lines(readFile(R"(C:\zarn-test\stage.txt)"));
  for (std::string key, value; std::getline(lines, key, '=') && std::getline(lines, value);)
    if (key == name) return value;
  throw std::runtime_error("the stage has no " + name);
}
/// Path of one of the stage's bundles.
inline std::string bundle(const std::string& name) {
  return stageSetting("bundles") + "\\" + name;
}
inline Answer installApproved() {
  return install(bundle("approved.exe"));
}
/// What the account service answers from here on.
inline void setProfile(const std::string& text) {
  writeFile(stageSetting("profile"), text);
}
inline void approveOnly(const std::string& digest) {
  setProfile(R"({"certs": [")" + digest + R"("]})");
}

/// How often `part` is in `text`.
inline std::size_t countOf(std::string_view part, std::string_view text) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}
/// A text of the registry; empty when there is none.
inline std::string storedText(HKEY root, const wchar_t* key, const wchar_t* name) {
  wchar_t stored[1024] = {};
  DWORD size = sizeof(stored);
  RegGetValueW(root, key, name, RRF_RT_REG_SZ, nullptr, stored, &size);
  return StringUtils::utf16to8(stored);
}
inline std::string storedAppDataPath() {
  return storedText(HKEY_CURRENT_USER, LR"(Software\Zarn, Inc.\Zarn Media Server)", L"LocalAppDataPath");
}

/// One run of the stand-in installer, from its record.
struct InstallerRun {
  std::string who;  // "genuine" or "intruder"
  std::string process;
  bool hasEnded = false;  // and was not cut
  std::string commandLine;
};

class ServiceUnderTest {
 public:
  /// Starts it when it is not running and waits until it runs and has logged `line`.
  void start(const std::string& line = "Listening for remote procedure calls...") {
    // Wine's control manager shows a process that ended without a stopped report as
    // running until it is asked to start it again; Windows' sees the end by itself.
    if (isRunning()) return;
    const std::string lastRunsLog = log();
    require(StartServiceW(service_.get(), 0, nullptr) != 0, "StartServiceW");
    // The state is reported just before the listener is up, and before or after the
    // log is rotated.
    const auto listens = [&] {
      const std::string now = log();
      return now != lastRunsLog && now.find(line) != std::string::npos;
    };
    require(waitUntil([&] { return isRunning(); }) && waitUntil(listens), "waiting for the start");
  }
  /// Sends the stop control and returns when the control manager has answered.
  void requestStop() {
    SERVICE_STATUS ignored{};
    require(ControlService(service_.get(), SERVICE_CONTROL_STOP, &ignored) != 0, "ControlService");
  }
  /// Asks it to stop and waits until its process has ended; its exit code.
  DWORD stop() {
    const KernelHandle running = process();
    requestStop();
    return waitForExit(running);
  }
  /// Reported as running, by a process that is still there.
  [[nodiscard]] bool isRunning() const {
    const SERVICE_STATUS_PROCESS now = status();
    const KernelHandle running(OpenProcess(SYNCHRONIZE, FALSE, now.dwProcessId));
    return now.dwCurrentState == SERVICE_RUNNING && running &&
           WaitForSingleObject(running.get(), 0) == WAIT_TIMEOUT;
  }
  /// The running process, to be waited for later.
  [[nodiscard]] KernelHandle process() const {
    constexpr DWORD rights = SYNCHRONIZE | PROCESS_QUERY_INFORMATION | PROCESS_TERMINATE;
    KernelHandle handle(OpenProcess(rights, FALSE, status().dwProcessId));
    require(static_cast<bool>(handle), "OpenProcess");
    return handle;
  }
  /// Exit code of a process, once it has ended; STILL_ACTIVE after half a minute.
  static DWORD waitForExit(const KernelHandle& process) {
    WaitForSingleObject(process.get(), 30'000);
    DWORD code = STILL_ACTIVE;
    require(GetExitCodeProcess(process.get(), &code) != 0, "GetExitCodeProcess");
    return code;
  }

  // ---- What it leaves behind ----------------------------------------------------
  static std::string logDirectory() { return FileUtils::logDirectory(true, false); }
  /// Text of log file `number` (0: the current one).
  static std::string log(int number = 0) {
    const std::string suffix = number == 0 ? ".log" : "." + std::to_string(number) + ".log";
    return readFile(FileUtils::join(logDirectory(), "Zarn Update Service" + suffix));
  }
  static bool waitForLogLine(const std::string& text) {
    return waitUntil([&] { return log().find(text) != std::string::npos; });
  }
  static std::string stagedCopy() {
    return toUtf8(boost::filesystem::temp_directory_path() / "ZarnMediaServerUpdate.exe");
  }
  static std::vector<InstallerRun> installerRuns() {
    std::vector<InstallerRun> runs;
    std::istringstream lines(readFile(kRuns));
    std::string event, time;
    for (InstallerRun run; lines >> event >> run.who >> run.process >> time;) {
      std::getline(lines >> std::ws, run.commandLine);
      if (event == "start") runs.push_back(run);
      for (InstallerRun& one : runs) one.hasEnded |= event == "end" && one.process == run.process;
    }
    return runs;
  }
  static void forgetInstallerRuns() { DeleteFileA(kRuns); }
  /// What the next installer does, as lines of its plan.
  static void planInstaller(const std::string& lines) { writeFile(R"(C:\zarn-test\plan.txt)", lines); }

 private:
  static constexpr char kRuns[] = R"(C:\zarn-test\runs.txt)";

  static void require(bool works, const char* what) {
    if (!works) throw std::runtime_error(std::string(what) + " failed: " + std::to_string(GetLastError()));
  }
  [[nodiscard]] SERVICE_STATUS_PROCESS status() const {
    SERVICE_STATUS_PROCESS result{};
    DWORD needed = 0;
    require(QueryServiceStatusEx(service_.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&result),
                                 sizeof(result), &needed) != 0,
            "QueryServiceStatusEx");
    return result;
  }

  ServiceHandle manager_{OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
  ServiceHandle service_{OpenServiceW(manager_.get(), L"ZarnUpdateService", SERVICE_ALL_ACCESS)};
};

/// Values of the machine's registry for the life of a test.
struct MachineSetting {
  ~MachineSetting() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, key); }
  void text(const wchar_t* name, const std::wstring& value) const {
    set(name, REG_SZ, value.c_str(), (value.size() + 1) * sizeof(wchar_t));
  }
  void number(const wchar_t* name, DWORD value) const { set(name, REG_DWORD, &value, sizeof(value)); }
  void set(const wchar_t* name, DWORD type, const void* value, std::size_t bytes) const {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, type, value, static_cast<DWORD>(bytes));
  }
  const wchar_t* key;
};

/// Begins with a running service, an approved publisher, and installers that ask for a reboot.
struct OnStage : ::testing::Test {
  void SetUp() override {
    approveOnly(stageSetting("approved_digest"));
    ServiceUnderTest::planInstaller("exit=1641\n");  // succeeds without a restart
    ServiceUnderTest::forgetInstallerRuns();
    service_.start();
  }
  void TearDown() override {
    std::istringstream lines(ServiceUnderTest::log());
    for (std::string line; std::getline(lines, line);) expectItsLevel(line);
  }

  ServiceUnderTest service_;
};

}  // namespace zarn::testing
