#include <gtest/gtest.h>

#ifndef _WIN32
#include "support/file_size_limit.h"
#endif
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "update/record_folder.h"

namespace zarn {
namespace {

class RecordFile : public ::testing::Test {
 protected:
  testing::RecordingLog log_;
  testing::TempDirectory folder_;
  const std::string file_ = folder_ / "Update History.jsonl";
  const std::string earlier_ = folder_ / "Update History.1.jsonl";

  bool append(std::string_view line) {
    using FileUtils::HeldFolder;
    const auto held = HeldFolder::hold(folder_.path(), os::Links::Refuse, FileUtils::OwnPlaces::Refuse);
    return appendLine(held.value(), kHistoryNames, line, 12);
  }
};

TEST_F(RecordFile, AppendsWholeLinesAndBeginsAnewWhenLarge) {
  testing::writeFile(file_, "torn");
  for (const char* line : {"one\n", "two\n", "three\n", "four\n"}) EXPECT_TRUE(append(line));
  EXPECT_EQ(testing::readFile(earlier_) + testing::readFile(file_), "torn\none\ntwo\nthree\nfour\n");
  EXPECT_EQ(testing::readFile(file_), "three\nfour\n");
}

TEST_F(RecordFile, GrowsNotWithoutEndWhenTheFileCannotBeMoved) {
  boost::filesystem::create_directories(FileUtils::toPath(earlier_ + "/x"));
  int written = 0;
  while (written < 10 && append("12345678\n")) ++written;
  EXPECT_EQ(written, 3);
}

TEST_F(RecordFile, WritesThroughNoLinkAndNotWithoutItsFolder) {
  testing::writeFile(folder_ / "target", "kept");
  boost::filesystem::create_hard_link(FileUtils::toPath(folder_ / "target"), FileUtils::toPath(file_));
  EXPECT_FALSE(appendToHistory(folder_.path(), "line\n"));
  EXPECT_EQ(testing::readFile(folder_ / "target"), "kept");
  EXPECT_FALSE(appendToHistory(folder_ / "missing", "line\n"));
  EXPECT_EQ(log_.count("The update history could not be written."), 2);
}

#ifndef _WIN32
TEST_F(RecordFile, TakesAWholeLineOrNoneOnAFullDisk) {
  EXPECT_TRUE(append("first\n"));
  EXPECT_FALSE((testing::FileSizeLimit(10), append("second\n")));
  EXPECT_TRUE(append("third\n"));
  EXPECT_EQ(testing::readFile(file_), "first\nthird\n");
}
#endif

}  // namespace
}  // namespace zarn
