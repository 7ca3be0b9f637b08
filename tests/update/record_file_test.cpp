#include "update/record_folder.h"

#include <gtest/gtest.h>

#ifndef _WIN32
#include "support/file_size_limit.h"
#endif
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "util/file_utils.h"

namespace zarn {
namespace {

class RecordFile : public ::testing::Test {
 protected:
  testing::RecordingLog log_;
  testing::TempDirectory folder_;
  const std::string file_ = folder_ / "Update History.jsonl";

  bool append(std::string_view line) {
    const auto held =
        FileUtils::HeldFolder::hold(folder_.path(), FileUtils::Links::Refuse, FileUtils::OwnPlaces::Refuse);
    return appendLine(held.value(), kHistoryNames, line, 12);
  }
};

TEST_F(RecordFile, AppendsWholeLinesAndBeginsAnewWhenLarge) {
  testing::writeFile(file_, "torn");
  for (const char* line : {"one\n", "two\n", "three\n", "four\n"}) EXPECT_TRUE(append(line));
  EXPECT_EQ(testing::readFile(folder_ / "Update History.1.jsonl"), "torn\none\ntwo\n");
  EXPECT_EQ(testing::readFile(file_), "three\nfour\n");
}

TEST_F(RecordFile, GrowsNotWithoutEndWhenTheFileCannotBeMoved) {
  boost::filesystem::create_directories(FileUtils::toPath(folder_ / "Update History.1.jsonl/x"));
  int written = 0;
  while (written < 10 && append("12345678\n")) ++written;
  EXPECT_EQ(written, 3);
}

TEST_F(RecordFile, WritesThroughNoLinkAndNotWithoutItsFolder) {
  const std::string target = folder_ / "target";
  testing::writeFile(target, "kept");
  boost::filesystem::create_hard_link(FileUtils::toPath(target), FileUtils::toPath(file_));
  EXPECT_FALSE(appendToHistory(folder_.path(), "line\n"));
  EXPECT_EQ(testing::readFile(target), "kept");
  EXPECT_FALSE(appendToHistory(folder_ / "missing", "line\n"));
  EXPECT_TRUE(log_.contains("The update history could not be written."));
}

#ifndef _WIN32
TEST_F(RecordFile, TakesAWholeLineOrNoneOnAFullDisk) {
  EXPECT_TRUE(appendToHistory(folder_.path(), "first\n"));
  {
    const testing::FileSizeLimit limit(15);
    EXPECT_FALSE(appendToHistory(folder_.path(), "the second line\n"));
  }
  EXPECT_TRUE(appendToHistory(folder_.path(), "third\n"));
  EXPECT_EQ(testing::readFile(file_), "first\nthird\n");
}
#endif

}  // namespace
}  // namespace zarn
