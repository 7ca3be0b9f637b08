#include "update/update_history.h"

#include <gtest/gtest.h>

#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "util/file_utils.h"

namespace zarn {
namespace {

class UpdateHistory : public ::testing::Test {
 protected:
  testing::RecordingLog log_;
  testing::TempDirectory folder_;
  const std::string file_ = folder_ / "Update History.jsonl";
};

TEST_F(UpdateHistory, HasOneObjectALine) {
  InstallRecord record;
  record.began = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'795'256'100'007));
  record.path = "C:\\a \"b\"\n\xff.exe";
  record.size = 5;
  record.status = Status::SignerRefused;
  record.note(Check::Open, Verdict::Passed);
  record.note(Check::Identity, Verdict::Refused, "5, Access denied.");
  record.duration = std::chrono::milliseconds(12);
  EXPECT_EQ(
      historyLine(record),
      R"({"time":"2026-11-21T10:15:00.007Z","path":"C:\\a \"b\"\n)"
      "\xEF\xBF\xBD"
      R"(.exe","size":5,"sha256":"","signerDigest":"","signerSubject":"","checks":[)"
      R"({"name":"open","verdict":"passed","detail":""},{"name":"size","verdict":"not reached","detail":""},)"
      R"({"name":"extension","verdict":"not reached","detail":""},)"
      R"({"name":"copy","verdict":"not reached","detail":""},)"
      R"({"name":"integrity","verdict":"not reached","detail":""},)"
      R"({"name":"identity","verdict":"refused","detail":"5, Access denied."}],)"
      R"("status":30005,"exitCode":null,"durationMs":12,"product":"","productVersion":""})"
      "\n");
}

TEST_F(UpdateHistory, AppendsWholeLinesAndBeginsAnewWhenLarge) {
  testing::writeFile(file_, "torn");
  for (const char* line : {"one\n", "two\n", "three\n", "four\n"}) {
    EXPECT_TRUE(appendToHistory(folder_.path(), line, 12));
  }
  EXPECT_EQ(testing::readFile(folder_ / "Update History.1.jsonl"), "torn\none\ntwo\n");
  EXPECT_EQ(testing::readFile(file_), "three\nfour\n");
}

TEST_F(UpdateHistory, WritesThroughNoLinkAndNotWithoutItsFolder) {
  const std::string target = folder_ / "target";
  testing::writeFile(target, "kept");
  boost::filesystem::create_hard_link(FileUtils::toPath(target), FileUtils::toPath(file_));
  EXPECT_FALSE(appendToHistory(folder_.path(), "line\n"));
  EXPECT_EQ(testing::readFile(target), "kept");
  EXPECT_FALSE(appendToHistory(folder_ / "missing", "line\n"));
  EXPECT_TRUE(log_.contains("The update history could not be written."));
}

}  // namespace
}  // namespace zarn
