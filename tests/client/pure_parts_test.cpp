// The parts of the tool that neither read nor call anything.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/tool/command_line.h"
#include "client/tool/explanations.h"
#include "client/tool/history.h"
#include "client/tool/log_outcome.h"

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
    R"({"time":"2026-11-21T10:15:00.123Z","path":"C:\\a\\b.exe","size":5000000000,"sha256":"ab","signerDigest":"cd",)"
    R"("signerSubject":"CN=Zarn","checks":[{"name":"open","verdict":"passed","detail":""},)"
    R"({"name":"integrity","verdict":"refused","detail":"0x800b0100"},{"name":"identity","verdict":"not reached"}],)"
    R"("status":30004,"exitCode":null,"durationMs":1234,"product":"P","productVersion":"5.1","later":{"x":1}})";

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
}

TEST(History, TellsWhichCheckDecided) {
  History history = parseHistory(kWholeLine);
  history.records[0].path = "C:\\x\\a\x1b[2Jb.exe";  // must not reach the terminal as it is
  EXPECT_THAT(historyTable(history.records),
              AllOf(HasSubstr("30004   refused at integrity  -          1.2 s  5.1"),
                    HasSubstr("a\\x1b[2Jb.exe"), Not(HasSubstr("\x1b"))));
}

std::string logLine(const std::string& message) {
  return "Nov 15, 2026 22:42:15.123 [4312] DEBUG - [UpdateService/Install] " + message + "\r\n";
}

TEST(LogOutcome, IsThatOfTheLastRequestThatEnded) {
  const std::string begin = logLine("bundlePath: C:\\a.exe");
  const std::pair<std::string, int> ends[] = {
      {logLine("Provided bundle is too large."), 30002},
      {logLine("ImageGetCertificateHeader() failed"), 30004},
      {logLine("Certificate couldn't be verified with the following error:"), 30004},
      {logLine("Certificate couldn't be verified"), 30005},
      {logLine("Installer exit code:  0 - The operation completed successfully."), 0},
      {logLine("Installer exit code:  -1 - "), 30002},
      {logLine("UpdateService::RunInstaller: CreateProcess failed"), 30002}};
  for (const auto& [end, status] : ends) {
    const auto outcome = lastOutcome(begin + end + begin);
    EXPECT_EQ(outcome ? outcome->status : -1, status) << end;
    EXPECT_FALSE(lastOutcome(end)) << "an end without a beginning";
  }
  // No end; a check of another caller; a path that reads like a line.
  for (const std::string& other :
       {logLine("Certificate identity verified"),
        std::string("Nov 15, 2026 22:42:15.123 [4312] ERROR - Certificate couldn't be verified\n"),
        logLine("CheckBundle() from UpdateInterface: C:\\ - [UpdateService/Install] " + ends[0].first)}) {
    EXPECT_FALSE(lastOutcome(begin + other)) << other;
  }
  const auto last = lastOutcome(begin + ends[0].first + logLine("bundlePath: C:\\b.exe") + ends[4].first);
  ASSERT_TRUE(last);
  EXPECT_EQ(last->bundle, "C:\\b.exe");
  EXPECT_EQ(last->time, "Nov 15, 2026 22:42:15.123");
  EXPECT_EQ(last->installerExitCode, 0U);
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
