// What is written of a request: the status that it ends with, its line, and the file for it.
#include <gmock/gmock.h>

#include <boost/filesystem/operations.hpp>
#include <nlohmann/json.hpp>

#ifndef _WIN32
#include "support/file_size_limit.h"
#endif
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "update/record_folder.h"

namespace zarn {
namespace {

using ::testing::HasSubstr;

TEST(Status, IsWhatAnInstallersExitCodeBecomes) {
  for (const auto& [code, status, isInstalled, restarts] : {std::tuple{0U, 0, true, true},
                                                            {3010U, 30000, true, true},
                                                            {1641U, 30001, true, false},
                                                            {30003U, 30003, false, false},
                                                            {259U, 30002, false, false}}) {
    const StatusFacts& facts = judgeExitCode(code);
    EXPECT_EQ(std::tuple(numberOf(facts.status), isSuccess(facts.status), facts.restartsService),
              std::tuple(status, isInstalled, restarts));
  }
  for (const int number : {5, 30004, 30005, 30006}) EXPECT_FALSE(isSuccess(Status{number})) << number;
}

TEST(Status, IsTheSameForCallersAndInTheDocumentation) {
  const std::string header = testing::readFile(ZARN_SOURCE "/client/update_client.h");
  const std::string manual = testing::readFile(ZARN_SOURCE "/docs/operations.md");
  std::string rows, constants, wantedConstants;
  for (std::size_t at = 0; (at = header.find("constexpr std::int32_t k", at)) != std::string::npos; ++at)
    constants += header.substr(at + 23, header.find(';', at) - at - 22);
  constexpr std::string_view heading = "\n| status | meaning | what to do |\n|---|---|---|\n";
  std::size_t row = manual.find(heading) + heading.size();
  for (const StatusFacts& facts : statuses()) {
    const std::string number = std::to_string(numberOf(facts.status));
    wantedConstants.append("k").append(facts.name).append(" = ").append(number).append(";");
    EXPECT_EQ(manual.compare(row, number.size() + 4, "| " + number + " |"), 0) << number;
    const std::size_t end = manual.find('\n', row);
    if (facts.status == Status::Failed) {
      EXPECT_THAT(manual.substr(row, end - row),
                  HasSubstr("(over " + std::string(kMaximumBundleWords) + ")"));
    }
    if (facts.isSuccess && facts.installerExit != 0U) {
      EXPECT_THAT(facts.meaning, HasSubstr("exit code " + std::to_string(*facts.installerExit) + ")"));
    }
    row = end + 1;
  }
  EXPECT_EQ(constants, wantedConstants);
  EXPECT_EQ(manual[row], '\n') << "a row of no status";
  std::vector<std::string> words(kCheckNames.begin(), kCheckNames.end());
  words.insert(words.end(), kVerdictNames.begin(), kVerdictNames.end());
  const auto object = toJson(InstallRecord());
  for (const auto& entry : object.items()) words.push_back(entry.key());
  for (const auto& word : words) EXPECT_THAT(manual, HasSubstr("`" + word + "`"));
}

constexpr char kLine[] =
    R"({"time":"2026-11-21T10:15:00.007Z","caller":{"sid":"S-1-5-21-7","processId":42,"image":"C:\\a.exe"},)"
    R"("path":"C:\\a \"b\"\n)"
    "\xEF\xBF\xBD"
    R"(.exe","size":5000000000,"sha256":"ab","signerDigest":"cd","signerSubject":"CN=Zarn","checks":[)"
    R"({"name":"open","verdict":"passed","detail":""},{"name":"size","verdict":"not reached","detail":""},)"
    R"({"name":"extension","verdict":"not reached","detail":""},)"
    R"({"name":"copy","verdict":"failed","detail":"112, Full."},)"
    R"({"name":"integrity","verdict":"not reached","detail":""},)"
    R"({"name":"identity","verdict":"refused","detail":"5, Access denied."},)"
    R"({"name":"policy","verdict":"not reached","detail":""}],"reason":"Too many wait.",)"
    R"("status":30005,"exitCode":4294967295,"durationMs":12,"product":"P","productVersion":"5.1"})"
    "\n";

TEST(InstallRecord, IsOneLineAndReadBackFromIt) {
  InstallRecord record;
  record.time = isoTime(std::chrono::system_clock::time_point(std::chrono::milliseconds(1'795'256'100'007)));
  record.caller = {"S-1-5-21-7", 42, "C:\\a.exe"};
  record.path = "C:\\a \"b\"\n\xff.exe";
  record.size = 5'000'000'000;
  record.sha256 = "ab", record.signerDigest = "cd", record.signerSubject = "CN=Zarn";
  EXPECT_TRUE(record.note(Check::Open, Verdict::Passed));
  EXPECT_FALSE(record.note(Check::Copy, Verdict::Failed, "112, Full."));
  EXPECT_FALSE(record.note(Check::Identity, Verdict::Refused, "5, Access denied."));
  record.reason = "Too many wait.";
  record.status = Status::SignerRefused;
  record.exitCode = 0xffffffff, record.durationMilliseconds = 12;
  record.product = "P", record.productVersion = "5.1";
  EXPECT_EQ(recordLine(record), kLine);
  EXPECT_EQ(recordLine(parseRecord(kLine).value()), kLine);
}

TEST(InstallRecord, CutsWhatOthersWroteAndLeavesOutWhatIsNotKnown) {
  const std::string endless(5000, 'x'), cut = std::string(1024, 'x') + "... (5000 characters)";
  InstallRecord record;
  record.caller.image = record.path = record.signerSubject = record.product = record.productVersion = endless;
  record.note(Check::Policy, Verdict::Refused, endless);
  const auto object = nlohmann::json::parse(recordLine(record));
  EXPECT_EQ(object["caller"], nlohmann::json({{"sid", nullptr}, {"processId", nullptr}, {"image", cut}}));
  EXPECT_EQ(object["checks"][6]["detail"], cut);
  for (const char* key : {"path", "signerSubject", "product", "productVersion"})
    EXPECT_EQ(object[key], cut) << key;
  for (const char* key : {"size", "reason", "exitCode", "durationMs"}) EXPECT_EQ(object[key], nullptr) << key;
}

TEST(InstallRecord, IsReadFromLinesOfAnyOrigin) {
  const std::string bomb(200'000, '[');
  for (const std::string& line :
       std::vector<std::string>{"", "[1]", "{}", bomb, "{\"time\":" + bomb, "\"x\"", R"({"status":1})",
                                R"({"time":"t","status":"0"})", std::string(kLine, sizeof(kLine) - 3)}) {
    EXPECT_FALSE(parseRecord(line)) << line.substr(0, 40);
  }
  const auto odd =
      parseRecord(R"({"time":"t","status":-1,"caller":7,"path":[],"size":-1,"exitCode":-1,)"
                  R"("checks":[3,{"name":"later","verdict":1}],"product":null,"later":{"x":1}})");
  ASSERT_TRUE(odd);
  EXPECT_EQ(recordLine(*odd),
            R"({"time":"t","caller":{"sid":null,"processId":null,"image":null},"path":"",)"
            R"("size":18446744073709551615,"sha256":"","signerDigest":"","signerSubject":"",)"
            R"("checks":[{"name":"later","verdict":"","detail":""}],"reason":null,"status":-1,)"
            R"("exitCode":4294967295,"durationMs":null,"product":"","productVersion":""})"
            "\n");
}

struct RecordFile : ::testing::Test {
  testing::RecordingLog log;
  testing::TempDirectory folder;
  const std::string file = folder / "Update History.jsonl", earlier = folder / "Update History.1.jsonl";

  bool append(std::string_view line) const {
    using FileUtils::HeldFolder;
    const auto held = HeldFolder::hold(folder.path(), os::Links::Refuse, FileUtils::OwnPlaces::Refuse);
    return appendLine(held.value(), kHistoryNames, line, 12);
  }
};

TEST_F(RecordFile, HasWholeLinesAndBeginsAnewWhenLargeButOnlyWhereItCan) {
  testing::writeFile(file, "torn");
  for (const char* line : {"one\n", "two\n", "three\n", "four\n"}) EXPECT_TRUE(append(line));
  EXPECT_EQ(testing::readFile(earlier) + "|" + testing::readFile(file), "torn\none\ntwo\n|three\nfour\n");
#ifndef _WIN32
  EXPECT_FALSE((testing::FileSizeLimit(14), append("second\n")));
  EXPECT_EQ(testing::readFile(file), "three\nfour\n") << "a line fits whole or not at all";
#endif
  boost::filesystem::remove(FileUtils::toPath(earlier));
  boost::filesystem::create_directories(FileUtils::toPath(earlier + "/x"));
  EXPECT_TRUE(append("12345678\n"));
  EXPECT_TRUE(append("12345678\n"));
  EXPECT_FALSE(append("12345678\n")) << "it cannot be moved, and grows no further";
}

TEST_F(RecordFile, IsWrittenThroughNoLinkAndNotWithoutItsFolder) {
  testing::writeFile(folder / "target", "kept");
  boost::filesystem::create_hard_link(FileUtils::toPath(folder / "target"), FileUtils::toPath(file));
  EXPECT_FALSE(appendToHistory(folder.path(), "line\n"));
  EXPECT_EQ(testing::readFile(folder / "target"), "kept");
  EXPECT_FALSE(appendToHistory(folder / "missing", "line\n"));
  EXPECT_EQ(log.count("The update history could not be written."), 2);
}

}  // namespace
}  // namespace zarn
