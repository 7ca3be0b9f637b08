#include "update/run_installer.h"

#include <gtest/gtest.h>

#include "support/recording_log.h"
#include "update/helper.h"
#include "util/system_error.h"

namespace zarn {
namespace {

using testing::wide;

class RunInstallerTest : public ::testing::Test {
 protected:
  RunInstallerTest() { FileUtils::copyFile(ZARN_TEST_HELPER, installer_); }

  testing::RecordingLog log_;
  testing::TempDirectory folder_;
  const std::string installer_ = folder_ / "an installer.exe";
};

TEST_F(RunInstallerTest, ReturnsTheExitCodeOfASilentRun) {
  const testing::HelperOrder order(0xC0000005);
  EXPECT_EQ(RunInstaller(wide(installer_)), 0xC0000005U);
  EXPECT_EQ(order.commandLine(), installer_ + " /quiet /norestart");
  EXPECT_EQ(log_.lines(),
            (std::vector<testing::LoggedLine>{
                {LogLevel::Debug, "Create Process Success! Waiting for process to complete."},
                {LogLevel::Debug, "Installer exit code:  -1073741819 - " + systemErrorPhrase(0xC0000005)}}));
}

TEST_F(RunInstallerTest, LeavesAnInstallerThatOutlastsTheWait) {
  static_assert(kInstallerWaitMilliseconds == 600'000);
  const testing::HelperOrder order(0, 1'000);
  EXPECT_EQ(RunInstaller(wide(installer_), {.waitMilliseconds = 100}), 259U);
  EXPECT_EQ(log_.lines()[1], (testing::LoggedLine{LogLevel::Error, "Wait for installer timed out."}));
  // It was not ended: its record comes when it has slept.
  for (int tries = 0; tries < 500 && order.commandLine().empty(); ++tries) Sleep(20);
  EXPECT_NE(order.commandLine(), "");
  while (DeleteFileW(wide(installer_).c_str()) == 0 && GetLastError() == ERROR_ACCESS_DENIED) Sleep(20);
}

TEST_F(RunInstallerTest, AnswersAnUnreadableExitCodeWithItsOwn) {
  const testing::HelperOrder order(0);
  const auto fail = [](void*, std::uint32_t&) { return false; };
  EXPECT_EQ(RunInstaller(wide(installer_), {.readExitCode = fail}), 30003U);
  EXPECT_EQ(log_.texts().at(1), "Failed to get exit code");
}

}  // namespace
}  // namespace zarn
