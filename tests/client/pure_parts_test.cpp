// The parts of the tool that neither read nor call anything.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "client/tool/command_line.h"
#include "client/tool/explanations.h"
#include "client/tool/history.h"
#include "client/tool/log_names.h"
#include "client/tool/log_outcome.h"
#include "client/tool/text.h"

namespace zarn::tool {
namespace {

using ::testing::HasSubstr;

TEST(Codes, AreReadInEveryWriting) {
  const struct {
    const char* text;
    std::optional<std::uint32_t> code;
  } cases[] = {{"0", 0},
               {"30004", 30004},
               {"-2146762496", 0x800b0100},
               {"0x800B0100", 0x800b0100},
               {"2148204800", 0x800b0100},
               {"4294967295", 0xffffffff},
               {"-1", 0xffffffff},
               {"-2147483648", 0x80000000},
               {"-2147483649", std::nullopt},
               {"4294967296", std::nullopt},
               {"-0x1", std::nullopt},
               {"0x", std::nullopt},
               {"", std::nullopt},
               {"-", std::nullopt},
               {"5 ", std::nullopt},
               {"+5", std::nullopt},
               {"five", std::nullopt}};
  for (const auto& one : cases) EXPECT_EQ(parseCode(one.text), one.code) << one.text;
  EXPECT_EQ(win32ErrorInside(0x80070005), 5U);
  EXPECT_EQ(win32ErrorInside(0x800b0100), std::nullopt);
}

TEST(Codes, AreExplainedWholly) {
  std::set<std::pair<CodeKind, std::uint32_t>> seen;
  for (const Explanation& row : explanations()) {
    const bool isCheck = row.kind == CodeKind::Status && row.code == 0;  // means two things
    EXPECT_TRUE(seen.emplace(row.kind, row.code).second || isCheck) << row.code;
    for (const auto text : {row.meaning, row.advice}) {
      EXPECT_FALSE(text.empty() || text.ends_with('.') || text.ends_with(' ')) << row.code << ": " << text;
    }
    EXPECT_FALSE(kindName(row.kind).empty() || kindKey(row.kind).empty());
  }
  for (const std::uint32_t status : {0U, 30000U, 30001U, 30002U, 30003U, 30004U, 30005U}) {
    EXPECT_NE(explain(CodeKind::Status, status), nullptr) << status;
  }
  EXPECT_EQ(explain(CodeKind::Status, 5), nullptr);
}

constexpr char kWholeLine[] =
    R"({"time":"2026-11-21T10:15:00.123Z","path":"C:\\a\\b.exe","size":5000000000,"sha256":"ab","signerDigest":"cd",)"
    R"("signerSubject":"CN=Zarn","checks":[{"name":"open","verdict":"passed","detail":""},)"
    R"({"name":"integrity","verdict":"refused","detail":"0x800b0100"},{"name":"identity","verdict":"not reached"}],)"
    R"("status":30004,"exitCode":null,"durationMs":1234,"product":"P","productVersion":"5.1","later":{"x":1}})";

TEST(History, KeepsWholeLinesAndCountsTheOthers) {
  const std::string whole = kWholeLine;
  const std::string bomb(200'000, '[');
  const History history =
      parseHistory(whole + "\r\n\n" + "[1]\n{}\n" + bomb + "\n\"x\"\n" + R"({"status":1})" + "\n" +
                   R"({"time":"t","status":"0"})" + "\n" + R"({"time":"t","status":0,"exitCode":-1})" + "\n" +
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
  EXPECT_THAT(historyTable(history.records),
              HasSubstr("30004   refused at integrity  -          1.2 s  5.1"));
  history.records[0].checks.clear();
  history.records[0].status = 30000;
  history.records[0].path = "C:\\x\\a\x1b[2Jb.exe";  // must not reach the terminal as it is
  EXPECT_THAT(historyTable(history.records), HasSubstr("installed, reboot required"));
  EXPECT_THAT(historyTable(history.records), HasSubstr("a\\x1b[2Jb.exe"));
}

std::string logLine(const std::string& message) {
  return "Nov 15, 2026 22:42:15.123 [4312] DEBUG - [UpdateService/Install] " + message + "\r\n";
}

TEST(LogOutcome, IsThatOfTheLastRequestThatEnded) {
  const std::string begin = logLine("bundlePath: C:\\a.exe");
  const struct {
    std::string end;
    std::optional<std::int32_t> status;
  } cases[] = {{logLine("Provided bundle is too large."), 30002},
               {logLine("ImageGetCertificateHeader() failed"), 30004},
               {logLine("Certificate couldn't be verified with the following error:"), 30004},
               {logLine("Certificate couldn't be verified"), 30005},
               {logLine("Installer exit code:  0 - The operation completed successfully."), 0},
               {logLine("Installer exit code:  3010 - "), 30000},
               {logLine("Installer exit code:  1641 - "), 30001},
               {logLine("Installer exit code:  -1 - "), 30002},
               {logLine("UpdateService::RunInstaller: CreateProcess failed"), 30002},
               {logLine("Installer exit code:  none"), std::nullopt},
               {logLine("Certificate identity verified"), std::nullopt},
               // A check of another caller, and a path that reads like a line.
               {"Nov 15, 2026 22:42:15.123 [4312] ERROR - Certificate couldn't be verified\n", std::nullopt},
               {logLine("CheckBundle() from UpdateInterface: C:\\ - [UpdateService/Install] Provided bundle "
                        "is too large."),
                std::nullopt}};
  for (const auto& one : cases) {
    const auto outcome = lastOutcome(begin + one.end);
    EXPECT_EQ(outcome ? std::optional(outcome->status) : std::nullopt, one.status) << one.end;
  }
  const auto last =
      lastOutcome(begin + cases[0].end + logLine("bundlePath: C:\\b.exe") + cases[4].end + begin);
  ASSERT_TRUE(last);
  EXPECT_EQ(last->bundle, "C:\\b.exe");
  EXPECT_EQ(last->time, "Nov 15, 2026 22:42:15.123");
  EXPECT_EQ(last->installerExitCode, 0U);
  EXPECT_FALSE(lastOutcome(cases[0].end)) << "an end without a beginning";
}

TEST(Text, IsShapedForPeople) {
  EXPECT_EQ(sentence(" a\r\nb  c \n"), "a b c.");
  EXPECT_EQ(sentence("a."), "a.");
  EXPECT_EQ(table({"A", "BB"}, {{"\xC3\xA4\xC3\xB6", "1"}, {"x", ""}}), "A   BB\n\xC3\xA4\xC3\xB6  1\nx\n");
  EXPECT_EQ(fields({{"Name", "a\nb"}}), "Name:           a\n                b\n");
  EXPECT_EQ(duration(999), "999 ms");
  EXPECT_EQ(duration(59'999), "59.9 s");
  EXPECT_EQ(duration(605'000), "10 min 05 s");
  EXPECT_EQ(fileSize(1023), "1023 bytes");
  EXPECT_EQ(fileSize(std::uint64_t{1} << 30), "1.0 GiB");
  EXPECT_EQ(fileSize(std::uint64_t{5} << 40), "5120.0 GiB");
}

TEST(LogNames, AreTheServicesOwn) {
  for (const char* own : {"Zarn Update Service.log", "Zarn Update Service.12.log", "Startup Crash.log",
                          "Update History.jsonl"}) {
    EXPECT_TRUE(isServiceLog(own)) << own;
  }
  for (const char* other : {"Zarn Media Server.log", "zarn update service.log", "startup.log", ""}) {
    EXPECT_FALSE(isServiceLog(other)) << other;
  }
  EXPECT_TRUE(isZipName("C:\\a.ZIP"));
  EXPECT_FALSE(isZipName("zip"));
}

TEST(CommandLine, IsReadOrRefusedInOneSentence) {
  const auto explained = readCommandLine({"explain", "-2146762496", "--json"});
  ASSERT_TRUE(std::holds_alternative<Invocation>(explained));
  EXPECT_EQ(std::get<Invocation>(explained).arguments.target, "-2146762496");
  EXPECT_TRUE(std::get<Invocation>(explained).arguments.json);

  const std::vector<std::vector<std::string>> mistakes = {{},
                                                          {"frob"},
                                                          {"install"},
                                                          {"install", "a", "b"},
                                                          {"install", "--force", "a"},
                                                          {"check", "a", "--logs", "b"},
                                                          {"history", "--last", "-1"},
                                                          {"history", "--last", "x"},
                                                          {"status", "install", "a"},
                                                          {"check", "a", "\x1b[2J\n"}};
  for (const auto& arguments : mistakes) {
    const auto read = readCommandLine(arguments);
    ASSERT_TRUE(std::holds_alternative<Mistake>(read)) << (arguments.empty() ? "" : arguments[0]);
    EXPECT_EQ(std::get<Mistake>(read).sentence.find_first_of("\n\x1b"), std::string::npos);
  }
  EXPECT_TRUE(std::get<Mistake>(readCommandLine({"install", "--json"})).json);

  const auto help = readCommandLine({"--help"});
  ASSERT_TRUE(std::holds_alternative<Information>(help));
  for (const Command& command : commands()) {
    EXPECT_THAT(std::get<Information>(help).text, HasSubstr(command.name));
    const auto own = readCommandLine({command.name, "--help"});
    ASSERT_TRUE(std::holds_alternative<Information>(own));
    EXPECT_THAT(std::get<Information>(own).text, HasSubstr(command.notes));
  }
}

}  // namespace
}  // namespace zarn::tool
