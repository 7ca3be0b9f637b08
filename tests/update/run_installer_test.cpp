#include "update/run_installer.h"

#include <gtest/gtest.h>

#include "support/recording_log.h"
#include "update/helper.h"

namespace zarn {
namespace {

using testing::wide;

TEST(RunInstaller, LeavesAnInstallerThatOutlastsTheWait) {
  static_assert(kInstallerWaitMilliseconds == 600'000);
  const testing::RecordingLog log;
  const testing::TempDirectory folder;
  const std::string installer = folder / "an installer.exe";
  FileUtils::copyFile(ZARN_TEST_HELPER, installer);
  const testing::HelperOrder order(0, 1'000);
  EXPECT_EQ(RunInstaller(wide(installer), {.waitMilliseconds = 100}), 259U);
  EXPECT_EQ(log.lines()[1], (testing::LoggedLine{LogLevel::Error, "Wait for installer timed out."}));
  // It was not ended: its record comes when it has slept.
  for (int tries = 0; tries < 500 && order.commandLine().empty(); ++tries) Sleep(20);
  EXPECT_EQ(order.commandLine(), installer + " /quiet /norestart");
  while (DeleteFileW(wide(installer).c_str()) == 0 && GetLastError() == ERROR_ACCESS_DENIED) Sleep(20);
}

}  // namespace
}  // namespace zarn
