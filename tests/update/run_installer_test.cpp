#include "update/run_installer.h"

#include <gtest/gtest.h>

#include "support/recording_log.h"
#include "update/helper.h"
#include "util/system_error.h"

namespace zarn {
namespace {

using testing::wide;

constexpr char kStarted[] = "Create Process Success! Waiting for process to complete.";

class RunInstallerTest : public ::testing::Test {
 protected:
  RunInstallerTest() { FileUtils::copyFile(ZARN_TEST_HELPER, installer_); }

  testing::RecordingLog log_;
  testing::TempDirectory folder_;
  const std::string installer_ = folder_ / "an installer.exe";
};

TEST_F(RunInstallerTest, ReturnsTheExitCodeOfASilentRun) {
  for (const std::uint32_t code : {0U, 1U, 1641U, 3010U, 30003U, 259U, 0xC0000005U}) {
    log_.clear();
    const testing::HelperOrder order(code);
    EXPECT_EQ(RunInstaller(wide(installer_)), code);
    EXPECT_EQ(order.commandLine(), installer_ + " /quiet /norestart");
    const auto shown = static_cast<std::int32_t>(code);
    EXPECT_EQ(log_.lines(), (std::vector<testing::LoggedLine>{
                                {LogLevel::Debug, kStarted},
                                {LogLevel::Debug, formatPrintf("Installer exit code:  %d - %s", shown,
                                                               systemErrorPhrase(code))}}));
  }
}

TEST_F(RunInstallerTest, ReturnsWhyItCouldNotBeStarted) {
  testing::writeFile(folder_ / "text.exe", "no program");
  for (const auto& [name, code] :
       {std::pair{"text.exe", ERROR_BAD_EXE_FORMAT}, {"none.exe", ERROR_FILE_NOT_FOUND}}) {
    log_.clear();
    EXPECT_EQ(RunInstaller(wide(folder_ / name)), static_cast<std::uint32_t>(code));
    EXPECT_EQ(log_.lines().front(),
              (testing::LoggedLine{LogLevel::Error, "UpdateService::RunInstaller: CreateProcess failed"}));
  }
}

TEST_F(RunInstallerTest, LeavesAnInstallerThatOutlastsTheWait) {
  static_assert(kInstallerWaitMilliseconds == 600'000);
  const testing::HelperOrder order(0, 1'000);
  EXPECT_EQ(RunInstaller(wide(installer_), {.waitMilliseconds = 100}), 259U);
  EXPECT_EQ(log_.lines()[1], (testing::LoggedLine{LogLevel::Error, "Wait for installer timed out."}));
  // It was not ended: its record comes when it has slept, as it does at once.
  for (int tries = 0; tries < 100 && order.commandLine().empty(); ++tries) Sleep(20);
  EXPECT_NE(order.commandLine(), "");
  while (DeleteFileW(wide(installer_).c_str()) == 0 && GetLastError() == ERROR_ACCESS_DENIED) Sleep(20);
}

TEST_F(RunInstallerTest, AnswersAnUnreadableExitCodeWithItsOwn) {
  const testing::HelperOrder order(0);
  const auto fail = [](void*, std::uint32_t&) {
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
  };
  EXPECT_EQ(RunInstaller(wide(installer_), {.readExitCode = fail}), 30003U);
  const auto lines = log_.texts();
  EXPECT_EQ(lines[1], "Failed to get exit code");
  EXPECT_EQ(
      lines[2],
      "UpdateService::RunInstaller: GetExitCodeProcess failed while retrieving exit code from installer.");
  EXPECT_TRUE(lines[3].starts_with("    Win32 Error: 6 ")) << lines[3];
}

}  // namespace
}  // namespace zarn
