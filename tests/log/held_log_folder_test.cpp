#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log/probe_log.h"
#include "os/handles_win.h"

namespace zarn::testing {
namespace {

TEST(LogFolder, ThatCannotBeHeldLosesNoLine) {
  const TempDirectory dir;
  const auto run = [&](const std::string& line) {
    ProbeLog log(dir.path());
    log.start("Test");
    log.write({line});
  };
  run("first");
  {
    const FileHandle alone(CreateFileW(FileUtils::toPath(dir.path()).c_str(), FILE_LIST_DIRECTORY, 0, nullptr,
                                       OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    ASSERT_TRUE(alone.isValid());
    run("second");
  }
  EXPECT_THAT(messagesIn(dir.path()), ::testing::ElementsAre("first", "second"));
  run("third");
  EXPECT_THAT(messagesIn(dir.path()), ::testing::ElementsAre("third"));
}

}  // namespace
}  // namespace zarn::testing
