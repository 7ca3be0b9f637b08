#include "update/update_history.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#ifndef _WIN32
#include "support/file_size_limit.h"
#endif
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

  bool append(std::string_view line) {
    const auto held =
        FileUtils::HeldFolder::hold(folder_.path(), FileUtils::Links::Refuse, FileUtils::OwnPlaces::Refuse);
    return appendLine(held.value(), kHistoryNames, line, 12);
  }
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
      R"({"time":"2026-11-21T10:15:00.007Z","caller":{"sid":null,"processId":null,"image":null},)"
      R"("path":"C:\\a \"b\"\n)"
      "\xEF\xBF\xBD"
      R"(.exe","size":5,"sha256":"","signerDigest":"","signerSubject":"","checks":[)"
      R"({"name":"open","verdict":"passed","detail":""},{"name":"size","verdict":"not reached","detail":""},)"
      R"({"name":"extension","verdict":"not reached","detail":""},)"
      R"({"name":"copy","verdict":"not reached","detail":""},)"
      R"({"name":"integrity","verdict":"not reached","detail":""},)"
      R"({"name":"identity","verdict":"refused","detail":"5, Access denied."},)"
      R"({"name":"policy","verdict":"not reached","detail":""}],"reason":null,)"
      R"("status":30005,"exitCode":null,"durationMs":12,"product":"","productVersion":""})"
      "\n");
}

TEST_F(UpdateHistory, SaysWhoAskedAndWhyNothingWasBegunAndCutsWhatOthersWrote) {
  const std::string endless(5000, 'x');
  InstallRecord record;
  record.caller = {"S-1-5-21-1-2-3-1001", 4711, endless};
  record.reason = "Too many requests wait.";
  record.path = record.signerSubject = record.product = record.productVersion = endless;
  const auto object = nlohmann::json::parse(historyLine(record));
  EXPECT_EQ(object["caller"]["sid"], record.caller.sid);
  EXPECT_EQ(object["caller"]["processId"], 4711);
  EXPECT_EQ(object["reason"], record.reason);
  const std::string cut = std::string(1024, 'x') + "... (5000 characters)";
  EXPECT_EQ(object["caller"]["image"], cut);
  for (const char* key : {"path", "signerSubject", "product", "productVersion"}) {
    EXPECT_EQ(object[key], cut) << key;
  }
}

TEST_F(UpdateHistory, AppendsWholeLinesAndBeginsAnewWhenLarge) {
  testing::writeFile(file_, "torn");
  for (const char* line : {"one\n", "two\n", "three\n", "four\n"}) EXPECT_TRUE(append(line));
  EXPECT_EQ(testing::readFile(folder_ / "Update History.1.jsonl"), "torn\none\ntwo\n");
  EXPECT_EQ(testing::readFile(file_), "three\nfour\n");
}

TEST_F(UpdateHistory, GrowsNotWithoutEndWhenTheFileCannotBeMoved) {
  boost::filesystem::create_directories(FileUtils::toPath(folder_ / "Update History.1.jsonl/x"));
  int written = 0;
  while (written < 10 && append("12345678\n")) ++written;
  EXPECT_EQ(written, 3);
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

#ifndef _WIN32
TEST_F(UpdateHistory, TakesAWholeLineOrNoneOnAFullDisk) {
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
