// The parts of the tool that neither read nor call anything.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/tool/command_line.h"
#include "client/tool/explanations.h"
#include "client/tool/history.h"

namespace zarn::tool {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(Codes, AreReadInEveryWriting) {
  for (const char* text : {"-2146762496", "0x800B0100", "2148204800"}) EXPECT_EQ(parseCode(text), 0x800b0100);
  for (const char* text : {"-1", "4294967295"}) EXPECT_EQ(parseCode(text), 0xffffffff);
  EXPECT_EQ(parseCode("0"), 0U);
  for (const char* text : {"-2147483649", "4294967296", "-0x1", "0x", "", "-", "5 ", "+5", "five"}) {
    EXPECT_EQ(parseCode(text), std::nullopt) << text;
  }
}

constexpr char kWholeLine[] =
    R"({"time":"2026-11-21T10:15:00.123Z","caller":{"sid":"S-1-5-21-7","processId":42,"image":"C:\\m\\server.exe"},)"
    R"("path":"C:\\a\\b.exe","size":5000000000,"sha256":"ab","signerDigest":"cd",)"
    R"("signerSubject":"CN=Zarn","checks":[{"name":"open","verdict":"passed","detail":""},)"
    R"({"name":"integrity","verdict":"refused","detail":"0x800b0100"},{"name":"identity","verdict":"not reached"}],)"
    R"("reason":null,"status":30004,"exitCode":null,"durationMs":1234,"product":"P","productVersion":"5.1","later":{"x":1}})";

TEST(History, KeepsWholeLinesAndCountsTheOthers) {
  const std::string whole = kWholeLine;
  const std::string bomb(200'000, '[');
  const History history = parseHistory(whole + "\r\n\n[1]\n{}\n" + bomb +
                                       "\n\"x\"\n{\"status\":1}\n{\"time\":\"t\",\"status\":\"0\"}\n"
                                       "{\"time\":\"t\",\"status\":0,\"exitCode\":-1}\n" +
                                       whole.substr(0, whole.size() - 1));
  ASSERT_EQ(history.records.size(), 2U);
  EXPECT_EQ(history.skipped, 7U);
  Json expected = Json::parse(whole);
  expected.erase("later");
  expected["checks"][2]["detail"] = "";
  EXPECT_EQ(toJson(history.records[0]), expected);
  EXPECT_EQ(history.records[1].exitCode, 0xffffffffU);
  EXPECT_EQ(toJson(history.records[1])["caller"],
            Json::parse(R"({"sid":null,"processId":null,"image":null})"));
}

TEST(History, TellsWhatEndedARequest) {
  History history = parseHistory(kWholeLine);
  history.records[0].path = "C:\\x\\a\x1b[2Jb.exe";  // must not reach the terminal as it is
  EXPECT_THAT(
      historyTable(history.records),
      AllOf(HasSubstr("30004   refused at integrity  -          1.2 s  5.1      S-1-5-21-7, server.exe"),
            HasSubstr("a\\x1b[2Jb.exe"), Not(HasSubstr("\x1b"))));
  history.records[0].exitCode = 1603;
  EXPECT_EQ(decidingCheck(history.records[0]), nullptr) << "it ran";
  history.records[0].reason = "Too many requests wait.";
  EXPECT_THAT(historyTable(history.records), HasSubstr("not begun: Too many requests wait."));
}

TEST(History, MergesTwoFilesByTimeWithoutSortingEither) {
  const auto lines = [](std::initializer_list<const char*> times) {
    std::string text;
    for (const char* time : times) text += "{\"time\":\"" + std::string(time) + "\",\"status\":0}\n";
    return parseHistory(text + "torn\n");
  };
  const History merged = mergeByTime(lines({"2", "4", "3"}), lines({"1", "2", "5"}));
  std::string order;
  for (const UpdateRecord& record : merged.records) order += record.time;
  EXPECT_EQ(order, "122435");
  EXPECT_EQ(merged.skipped, 2U);
}

TEST(CommandLine, IsReadOrRefusedInOneSentence) {
  const auto read = std::get<Invocation>(readCommandLine({"explain", "-2146762496", "--json"}));
  EXPECT_EQ(read.arguments.target, "-2146762496");
  EXPECT_TRUE(read.arguments.json);
  using Arguments = std::vector<std::string>;
  for (const Arguments& arguments : {Arguments{},
                                     {"install"},
                                     {"install", "a", "b"},
                                     {"install", "--force", "a"},
                                     {"history", "--last", "-1"},
                                     {"status", "install", "a"},
                                     {"check", "a", "\x1b[2J\n"}}) {
    const auto mistake = std::get<Mistake>(readCommandLine(arguments));
    EXPECT_EQ(mistake.sentence.find_first_of("\n\x1b"), std::string::npos);
  }
  EXPECT_TRUE(std::get<Mistake>(readCommandLine({"install", "--json"})).json);
}

}  // namespace
}  // namespace zarn::tool
