#include <gtest/gtest.h>

#include "support/file_size_limit.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "update/update_history.h"

namespace zarn {
namespace {

TEST(UpdateHistoryOnAFullDisk, TakesAWholeLineOrNone) {
  const testing::RecordingLog log;
  const testing::TempDirectory folder;
  ASSERT_TRUE(appendToHistory(folder.path(), "first\n"));
  {
    const testing::FileSizeLimit limit(15);
    EXPECT_FALSE(appendToHistory(folder.path(), "the second line\n"));
  }
  EXPECT_EQ(testing::readFile(folder / "Update History.jsonl"), "first\n");
  EXPECT_TRUE(appendToHistory(folder.path(), "third\n"));
  EXPECT_EQ(testing::readFile(folder / "Update History.jsonl"), "first\nthird\n");
}

}  // namespace
}  // namespace zarn
