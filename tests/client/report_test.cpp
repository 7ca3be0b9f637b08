// What zarn-update says: no part of this reads anything, or calls anybody, but the
// documentation, whose tables must say the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "client/tool/report/command_line.h"
#include "client/tool/report/explanations.h"
#include "client/tool/report/outcome.h"
#include "client/tool/report/text.h"
#include "client/tool/report/verification_report.h"
#include "support/temp_directory.h"
#include "update/record_folder.h"

namespace zarn::tool {
namespace {

using client::CallFailure;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(Codes, AreReadInEveryWriting) {
  for (const char* text : {"-2146762496", "0x800B0100", "2148204800"}) EXPECT_EQ(parseCode(text), 0x800b0100);
  for (const char* text : {"-1", "4294967295"}) EXPECT_EQ(parseCode(text), 0xffffffff);
  EXPECT_EQ(parseCode("0"), 0U);
  for (const char* text :
       {"-2147483649", "4294967296", "-0x1", "0x", "0x-1", "", "-", "--1", "5 ", "+5", "five"}) {
    EXPECT_EQ(parseCode(text), std::nullopt) << text;
  }
}

TEST(Codes, AreExplainedByEveryTableThatHasThem) {
  const auto kindsOf = [](const char* code) {
    std::string kinds;
    for (const Json& entry : explanationAnswer(code).json["entries"]) {
      kinds += entry["kind"].get<std::string>() + ":" + entry["name"].get<std::string>() + " ";
    }
    return kinds;
  };
  EXPECT_EQ(kindsOf("0"),
            "status: status: installer:ERROR_SUCCESS win32:ERROR_SUCCESS service: tool: setup: ");
  EXPECT_EQ(kindsOf("-2147024891"), "win32:ERROR_ACCESS_DENIED ") << "0x80070005";
  EXPECT_EQ(kindsOf("30004"), "status: ");
  EXPECT_EQ(explanationAnswer("five").exitCode, ExitCode::WrongArguments);
}

/// The first cells of a table's rows in a chapter of the documentation.
std::set<std::string> documented(const std::string& chapter, const std::string& heading) {
  static const std::string text = testing::readFile(ZARN_DOCS "/operations.md");
  const std::size_t begin = text.find(heading, text.find("\n## " + chapter + "\n"));
  std::istringstream lines(begin == std::string::npos ? "" : text.substr(begin));
  std::set<std::string> cells;
  std::string line;
  for (int number = 0; std::getline(lines, line) && line.starts_with("| "); ++number) {
    if (number > 0) cells.insert(line.substr(2, line.find(" |") - 2));
  }
  return cells;
}

TEST(Documentation, HasARowForEveryCodeAndCommand) {
  const auto codesOf = [](CodeKind kind) {
    std::set<std::string> codes;
    for (const CodeTable& table : codeTables()) {
      for (const Explanation& row : table.rows) {
        if (table.kind == kind) codes.insert(std::to_string(row.code));
      }
    }
    return codes;
  };
  const std::set<std::string> exitCodes = codesOf(CodeKind::ToolExit);
  EXPECT_EQ(documented("Statuses", "| status"), codesOf(CodeKind::ServiceStatus));
  EXPECT_EQ(documented("zarn-update", "| exit code"), exitCodes);
  EXPECT_EQ(documented("Deploying", "| exit code"), codesOf(CodeKind::SetupExit));
  const std::string help = std::get<Information>(readCommandLine({"--help"})).text;
  for (const std::string& code : exitCodes) EXPECT_THAT(help, HasSubstr("\n  " + code + "  "));
  std::set<std::string> shown;
  for (const Command& one : commands()) {
    shown.insert("`" + std::string(one.name) + (one.argument ? " " + std::string(one.argument) : "") + "`");
  }
  EXPECT_EQ(documented("zarn-update", "| command"), shown);
}

TEST(Text, IsShapedForPeople) {
  EXPECT_EQ(sentence(" The file\r\n  is gone \r\n"), "The file is gone.");
  EXPECT_EQ(sentence("Why?") + sentence("So.") + sentence(""), "Why?So.");
  const std::pair<std::int64_t, const char*> durations[] = {
      {999, "999 ms"}, {1099, "1.0 s"}, {59'999, "59.9 s"}, {65'000, "1 min 05 s"}};
  for (const auto& [milliseconds, text] : durations) EXPECT_EQ(duration(milliseconds), text);
  const std::pair<std::uint64_t, const char*> sizes[] = {
      {1023, "1023 bytes"}, {1024, "1.0 KiB"}, {3U << 20, "3.0 MiB"}, {std::uint64_t{5} << 40, "5120.0 GiB"}};
  for (const auto& [bytes, text] : sizes) EXPECT_EQ(fileSize(bytes), text);
  EXPECT_EQ(table({"A", "B"}, {{"\xC3\xA4\xC3\xA4", "x"}, {"1", ""}}), "A   B\n\xC3\xA4\xC3\xA4  x\n1\n");
  EXPECT_EQ(fields({{"Name", "one\ntwo"}}), "Name:           one\n                two\n");
}

constexpr char kRefusedLine[] =
    R"({"time":"2026-11-21T10:15:00.123Z","caller":{"sid":"S-1-5-21-7","processId":42,"image":"C:\\m\\server.exe"},)"
    R"("path":"C:\\x\\a\u001b[2Jb.exe","checks":[{"name":"open","verdict":"passed","detail":""},)"
    R"({"name":"integrity","verdict":"refused","detail":"0x800b0100"},{"name":"identity","verdict":"not reached"}],)"
    R"("reason":null,"status":30004,"exitCode":null,"durationMs":1234,"productVersion":"5.1"})";

std::string shownOf(Result<History> history, std::uint32_t last = 0) {
  const Answer answer = historyAnswer({"F", {}, true}, "F/x", std::move(history), last);
  return answer.text + answer.error;
}

TEST(History, TellsWhatEndedARequest) {
  History history = parseHistory(kRefusedLine);
  InstallRecord& record = history.records.at(0);
  EXPECT_THAT(
      shownOf(history),
      AllOf(HasSubstr("30004   refused at integrity  -          1.2 s  5.1      S-1-5-21-7, server.exe"),
            HasSubstr("a\\x1b[2Jb.exe"), Not(HasSubstr("\x1b"))));
  record.caller = {"", 42, ""};
  EXPECT_THAT(shownOf(history), HasSubstr("  process 42  "));
  record.exitCode = 1603;
  EXPECT_EQ(decidingCheck(record), nullptr) << "it ran";
  const std::pair<Status, const char*> outcomes[] = {{Status::Installed, "  installed  "},
                                                     {Status::RebootInitiated, "  installed, reboot began  "},
                                                     {Status{5}, "  failed  "}};
  for (const auto& [status, text] : outcomes) {
    record.status = status;
    EXPECT_THAT(shownOf(history), HasSubstr(text));
  }
  record.reason = "Too many requests wait.";
  EXPECT_THAT(shownOf(history), HasSubstr("not begun: Too many requests wait."));
}

TEST(History, CountsTornLinesAndMergesByTimeWithoutSorting) {
  const auto read = [](std::initializer_list<const char*> times, bool isCut) {
    std::string text = "torn\r\n\n";
    for (const char* time : times) text += "{\"time\":\"" + std::string(time) + "\",\"status\":0}\n";
    return parseHistory(text + "{\"to", isCut);
  };
  History merged = mergeByTime(read({"2", "4", "3"}, false), read({"1", "2", "5"}, true));
  std::string order;
  for (const InstallRecord& record : merged.records) order += record.time;
  EXPECT_EQ(order, "122435");
  EXPECT_EQ(merged.skipped, 3U) << "the line that was cut is none";
  const std::string newest = shownOf(merged, 1);
  EXPECT_THAT(newest,
              AllOf(HasSubstr("\n5 "), Not(HasSubstr("\n4 ")), HasSubstr("3 line(s)"), HasSubstr("Older")));
  merged.unread = SystemError(kFolderNotTrusted);
  EXPECT_EQ(shownOf(merged), "The history in F cannot be read: users may have written to it.");
  EXPECT_THAT(shownOf(failure(2)), HasSubstr("cannot be read")) << "of a folder that was named";
  EXPECT_EQ(historyAnswer({"F", {}}, "", failure(2), 0).text, "No requests are recorded in F\n");
}

TEST(Outcomes, HaveAnExitCodeAndTheInstallersOnlyWhenOneRan) {
  const struct {
    std::int32_t status;
    std::int32_t installer;
    bool isSuccess;
    Json shownInstaller;
    const char* firstWord;
  } cases[] = {{0, 0, true, 0, "Installed:"},           {30000, 3010, true, 3010, "Installed:"},
               {30001, 1641, true, 1641, "Installed:"}, {30002, 1603, false, 1603, "Failed:"},
               {30002, 0, false, nullptr, "Failed:"},   {30003, 30003, false, 30003, "Failed:"},
               {30004, 0, false, nullptr, "Refused:"},  {30005, 7, false, nullptr, "Refused:"},
               {5, 7, false, nullptr, "Failed:"},       {123456, 0, false, nullptr, "Failed:"}};
  for (const auto& one : cases) {
    const Answer answer = installAnswer("b\x1b.exe", {one.status, one.installer}, std::chrono::seconds(2));
    EXPECT_EQ(answer.exitCode, one.isSuccess ? ExitCode::Success : ExitCode::Refused) << one.status;
    EXPECT_EQ(answer.json["installerExitCode"], one.shownInstaller) << one.status;
    EXPECT_EQ(answer.json["installed"], one.isSuccess);
    EXPECT_EQ(answer.json["status"], one.status);
    EXPECT_THAT(answer.text,
                AllOf(HasSubstr(one.firstWord + std::string(" b\\x1b.exe\n")), HasSubstr("2.0 s")));
    // A check has one answer that is good, whatever an install means by the others.
    EXPECT_EQ(checkAnswer("b", Status{one.status}).json["trusted"], one.status == 0);
    EXPECT_EQ(checkAnswer("b", Status{one.status}).exitCode == ExitCode::Success, one.status == 0);
  }
}

const Result<ServiceFacts> kRunning = ServiceFacts{"running", true, 7, 0, "C:\\s.exe", "LocalSystem"};
const Result<ServiceFacts> kStopped = ServiceFacts{"stopped", false, 0, 1467, "C:\\s.exe", "LocalSystem"};
const Result<ServiceFacts> kAbsent = failure(1060);

TEST(Outcomes, OfACallWithoutAnswerSayWhatStandsInTheWay) {
  const struct {
    CallFailure failure;
    Result<ServiceFacts> service;
    ExitCode exitCode;
    const char* part;
  } cases[] = {
      {CallFailure::NotRunning, kAbsent, ExitCode::ServiceUnreachable, "not installed"},
      {CallFailure::NotRunning, kStopped, ExitCode::ServiceUnreachable, "not running, it is stopped"},
      {CallFailure::NotRunning, kRunning, ExitCode::ServiceUnreachable, "cannot be reached"},
      {CallFailure::NotRunning, failure(5), ExitCode::ServiceUnreachable, "cannot be reached"},
      {CallFailure::Refused, kRunning, ExitCode::ServiceUnreachable, "stands in its place"},
      {CallFailure::Interrupted, kRunning, ExitCode::Interrupted, "is unknown"},
      {CallFailure::InvalidPath, kRunning, ExitCode::WrongArguments, "zero character"},
      {CallFailure::Other, kRunning, ExitCode::ServiceUnreachable, "RPC status 9"}};
  for (const auto& one : cases) {
    const Answer answer = noAnswer({one.failure, 9}, one.service);
    EXPECT_EQ(answer.exitCode, one.exitCode) << one.part;
    EXPECT_THAT(answer.error, HasSubstr(one.part));
    EXPECT_EQ(answer.json["rpcStatus"], 9);
  }
}

TEST(Status, ShowsTheServiceAndItsLastOutcome) {
  const auto shown = [](Result<ServiceFacts> service, Result<History> history) {
    const Answer answer = statusAnswer({std::move(service), "1.0", "L", false, std::move(history)});
    return std::to_string(static_cast<int>(answer.exitCode)) + answer.text;
  };
  EXPECT_THAT(shown(kRunning, parseHistory(kRefusedLine)),
              AllOf(HasSubstr("0Service:        running, process 7\n"), HasSubstr("status 30004, refused:"),
                    HasSubstr("L (does not exist)"), Not(HasSubstr("\x1b"))));
  EXPECT_THAT(
      shown(kStopped, failure(2)),
      AllOf(HasSubstr("3Service:        stopped, ended with code 1467\n"), HasSubstr("none is recorded")));
  History unread;
  unread.unread = SystemError(kFolderNotTrusted);
  EXPECT_THAT(shown(kAbsent, unread), AllOf(HasSubstr("3Service:        not installed\n"),
                                            HasSubstr("cannot be read: users may have written to it.")));
  EXPECT_EQ(programOfCommandLine("\"C:\\a b\\s.exe\" -x") + programOfCommandLine("C:\\a b\\s.exe -x"),
            "C:\\a b\\s.exeC:\\a b\\s.exe");
}

TEST(Verify, CallsTheSignerOfARefusedSignatureAClaim) {
  VerificationReport report{.status = Status::SignatureRefused, .host = "h"};
  report.signer = {"ab", "CN=\x1b"};
  EXPECT_THAT(verificationAnswer("b", report).text,
              AllOf(HasSubstr("Would be refused: b\n"), HasSubstr("Claimed signer: CN=\\x1b"),
                    HasSubstr("h, not asked")));
  report.status = Status::Installed;
  report.signatureHolds = true;
  report.profile = {3, true};
  const Answer good = verificationAnswer("b", report);
  EXPECT_THAT(good.text, AllOf(HasSubstr("Would be run: b\n"), HasSubstr("\nSigner:         CN=\\x1b"),
                               HasSubstr("approved digests: 3, the signer's among them")));
  EXPECT_EQ(good.exitCode, ExitCode::Success);
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
  std::vector<std::string> keys;
  for (const auto& [key, value] : Json::parse(jsonText({}, "check")).items()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre("command", "ok", "exitCode", "error"));
}

}  // namespace
}  // namespace zarn::tool
