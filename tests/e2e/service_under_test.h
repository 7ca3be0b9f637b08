// The installed service as an administrator and the media server see it: through
// the service control manager, its files and its log.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "os/handles_win.h"

namespace zarn::testing {

/// Polls until `condition` holds; false when `limit` has passed without it.
bool waitUntil(const std::function<bool()>& condition, std::chrono::seconds limit = std::chrono::seconds(20));

/// What prepare.py wrote of the stage.
std::string stageSetting(const std::string& name);
/// Path of one of the stage's bundles.
std::string bundle(const std::string& name);
/// What the account service answers from here on.
void setProfile(const std::string& text);
void approveOnly(const std::string& digest);

/// One run of the stand-in installer, from its record.
struct InstallerRun {
  std::string who;  // "genuine" or "intruder"
  std::string process;
  unsigned long long startedMs = 0;
  unsigned long long endedMs = 0;  // 0: still running, or cut
  std::string commandLine;
};

class ServiceUnderTest {
 public:
  /// Registers the service (own process, demand start) when it is not yet registered.
  ServiceUnderTest();

  /// Starts it when it is not running and waits until it runs.
  void start();
  /// Sends the stop control and returns when the control manager has answered.
  void requestStop();
  /// Asks it to stop and waits until its process has ended; its exit code.
  DWORD stop();
  [[nodiscard]] SERVICE_STATUS_PROCESS status() const;
  /// Reported as running, by a process that is still there.
  [[nodiscard]] bool isRunning() const;

  /// The running process, to be waited for later.
  [[nodiscard]] KernelHandle process() const;
  /// Exit code of a process, once it has ended; STILL_ACTIVE after `limit`.
  static DWORD waitForExit(const KernelHandle& process,
                           std::chrono::seconds limit = std::chrono::seconds(30));

  // ---- What it leaves behind ----------------------------------------------------
  static std::string logDirectory();
  /// Text of log file `number` (0: the current one).
  static std::string log(int number = 0);
  static bool waitForLogLine(const std::string& text, int number = 0);
  static std::string stagedCopy();
  static std::vector<InstallerRun> installerRuns();
  static void forgetInstallerRuns();
  /// What the next installer does, as lines of its plan.
  static void planInstaller(const std::string& lines);

 private:
  ServiceHandle manager_;
  ServiceHandle service_;
};

/// Begins with a running service, an approved publisher, and installers that ask for a reboot.
class OnStage : public ::testing::Test {
 protected:
  void SetUp() override;

  ServiceUnderTest service_;
};

}  // namespace zarn::testing
