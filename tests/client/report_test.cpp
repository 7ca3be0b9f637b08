// What zarn-update says. No part of this calls anybody or looks at the machine; only the
// system's words for errors, which every system has its own, are left out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "client/tool/report/command_line.h"
#include "client/tool/report/explanations.h"
#include "client/tool/report/outcome.h"
#include "client/tool/report/text.h"
#include "client/tool/report/verification_report.h"
#include "support/temp_directory.h"
#include "update/record_folder.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

using client::CallFailure;
using ::testing::HasSubstr;

/// Collects answers in full, to be compared with a file that people have read.
struct Transcript {
  std::string text;

  void add(const std::string& what, Answer answer) {
    answer.text.erase(std::min(answer.text.find("\n  Windows says:"), answer.text.size()));
    answer.json.erase("systemText");
    const std::string error = answer.error.empty() ? "" : "error: " + answer.error + "\n";
    text += "==== " + what + ": " + std::to_string(static_cast<int>(answer.exitCode)) + "\n" + answer.text +
            error;
    if (!answer.json.empty()) text += answer.json.dump() + "\n";
  }
  void addCommandLine(const std::vector<std::string>& arguments) {
    const CommandLine read = readCommandLine(arguments);
    std::string what = "zarn-update";
    for (const std::string& argument : arguments) what += " " + printable(argument);
    if (const auto* const information = std::get_if<Information>(&read))
      text += "==== " + what + "\n" + information->text;
    if (const auto* const mistake = std::get_if<Mistake>(&read))
      add(what, failed(ExitCode::WrongArguments, mistake->sentence));
  }
  void expect(const std::string& file) const {
    EXPECT_EQ(text, testing::readFile(ZARN_SOURCE "/tests/client/" + file));
  }
};

TEST(CommandLine, HasItsHelpAndIsRefusedInOneSentence) {
  Transcript said;
  said.addCommandLine({"--help"});
  for (const Command& command : commands()) said.addCommandLine({command.name, "--help"});
  const std::vector<std::string> wrong[] = {{},
                                            {"install"},
                                            {"install", "a", "b"},
                                            {"install", "--force", "a"},
                                            {"history", "--last", "-1"},
                                            {"status", "install", "a"},
                                            {"check", "a", "\x1b[2J\n"}};
  for (const auto& arguments : wrong) said.addCommandLine(arguments);
  said.expect("help.txt");
  const auto read = std::get<Invocation>(readCommandLine({"explain", "-2146762496", "--json"}));
  EXPECT_EQ(read.arguments.target, "-2146762496");
  EXPECT_TRUE(read.arguments.json && std::get<Mistake>(readCommandLine({"install", "--json"})).json);
}

constexpr char kRecords[] =
    R"({"time":"1","caller":{"sid":"S-1-5-21-7","processId":42,"image":"C:\\m\\server.exe"},)"
    R"("path":"C:\\x\\a\u001b[2Jb.exe","status":30004,"exitCode":null,"durationMs":1234,"productVersion":"5.1",)"
    R"("checks":[{"name":"open","verdict":"passed"},{"name":"integrity","verdict":"refused"},{}]})"
    "\n"
    R"({"time":"2","caller":{"processId":42},"status":30002,"exitCode":1603,"checks":[{"name":"copy"}]})"
    "\r\n\n"
    R"({"time":"3","caller":{"sid":"S-1-5-18"},"status":30001,"durationMs":59999})"
    "\n"
    R"({"time":"4","status":5,"durationMs":65000})"
    "\n"
    R"({"time":"5","path":"C:\\d.exe","status":30002,"reason":"Too many requests wait."})"
    "\n"
    R"({"time":"6","status":30)";

const Result<ServiceFacts> kRunning = ServiceFacts{"running", true, 7, 0, "C:\\s.exe", "LocalSystem"};
const Result<ServiceFacts> kStopped = ServiceFacts{"stopped", false, 0, 1467, "C:\\s.exe", "LocalSystem"};
const Result<ServiceFacts> kAbsent = failure(1060);

TEST(Answers, AreWhatPeopleAndScriptsRelyOn) {
  Transcript said;
  for (const char* code : {"0", "30004", "-2147024891", "0XC0000005", "3221225786", "-2147483649",
                           "4294967296", "-0x1", "0x", "0x-1", "", "-", "--1", "5 ", "+5", "five"})
    said.add(code, explanationAnswer(code));
  // The installer's exit code is shown where one ran.
  for (const auto& [status, code] : {std::pair{0, 0},
                                     {30000, 3010},
                                     {30001, 1641},
                                     {30002, 1603},
                                     {30002, 0},
                                     {30003, 30003},
                                     {30004, 0},
                                     {30005, 7},
                                     {5, 7}}) {
    said.add("install", installAnswer("b\x1b", {status, code}, std::chrono::milliseconds(2099)));
    said.add("check", checkAnswer("b\x1b", Status{status}));
  }
  for (const auto& service : {kRunning, kStopped, kAbsent, Result<ServiceFacts>(failure(5))})
    said.add("not running", noAnswer({CallFailure::NotRunning, 1722}, service));
  for (const auto failure : {CallFailure::Refused, CallFailure::Interrupted, CallFailure::InvalidPath})
    said.add("no answer", noAnswer({failure, 9}, kRunning));
  said.add("set-app-data", setAppDataAnswer(""));
  said.add("set-app-data", setAppDataAnswer("C:\\d\x1b"));

  History history = parseHistory(kRecords);
  const RecordSource source{"F", {}, true};
  said.add("history", historyAnswer(source, "F/x", history, 0));
  history.isCut = true;
  said.add("the newest", historyAnswer(source, "F/x", history, 1));
  said.add("status", statusAnswer({kRunning, "1.0", "L", true, history}));
  said.add("status", statusAnswer({kStopped, "1.0", "L", false, failure(2)}));
  said.add("status", statusAnswer({kAbsent, "", "", false, failure(kFolderNotTrusted)}));
  history.unread = SystemError(kFolderNotTrusted);
  said.add("unread history", historyAnswer(source, "F/x", history, 0));
  said.add("no history", historyAnswer({"F", {}, false}, "F/x", failure(2), 0));

  VerificationReport report;
  report.status = Status::SignatureRefused;
  report.steps = {{"open", "passed", "\x1b"}};
  report.signer = {"ab", "CN=\x1b"};
  report.host = "h";
  report.log = {"line"};
  said.add("verify", verificationAnswer("b", report));
  report.status = Status::Installed;
  report.signatureHolds = true;
  report.profile = {3, true};
  said.add("verify", verificationAnswer("b", report));
  said.expect("answers.txt");
  EXPECT_EQ(
      jsonText(failed(ExitCode::Refused, "\xff"), "c"),
      "{\n  \"command\": \"c\",\n  \"ok\": false,\n  \"exitCode\": 1,\n  \"error\": \"\xEF\xBF\xBD\"\n}\n");
}

TEST(Answers, OfOtherFailuresHaveTheSystemsWords) {
  EXPECT_THAT(noAnswer({CallFailure::Other, 9}, kRunning).error, HasSubstr("RPC status 9, "));
  EXPECT_THAT(statusAnswer({failure(5), "", "", false, History()}).text, HasSubstr("unknown: "));
  for (const char* line : {"\"C:\\a b\\s.exe\" -x", "C:\\a b\\s.exe -x"})
    EXPECT_EQ(programOfCommandLine(line), "C:\\a b\\s.exe");
}

TEST(Sizes, AreShownInTheLargestUnitThatFits) {
  EXPECT_EQ(fileSize(1023) + fileSize(1024) + fileSize(std::uint64_t{5} << 40),
            "1023 bytes1.0 KiB5120.0 GiB");
}

TEST(History, IsMergedByTimeWithoutSorting) {
  const auto read = [](std::initializer_list<const char*> times, bool isCut) {
    std::string text = "torn\n";
    for (const char* time : times) text += "{\"time\":\"" + std::string(time) + "\",\"status\":0}\n";
    return parseHistory(text + "{\"to", isCut);
  };
  const History merged = mergeByTime(read({"2", "4", "3"}, false), read({"1", "2", "5"}, true));
  std::string order;
  for (const InstallRecord& record : merged.records) order += record.time;
  EXPECT_EQ(order + std::to_string(merged.skipped), "1224353") << "the line that was cut is no torn one";
}

/// The first cells of the rows of a chapter's table whose first heading is `heading`.
std::set<std::string> documented(const std::string& chapter, const std::string& heading) {
  const std::string text = testing::readFile(ZARN_SOURCE "/docs/operations.md");
  const std::size_t begin = text.find("\n| " + heading + " |", text.find("\n## " + chapter + "\n")) + 1;
  std::set<std::string> cells;
  for (std::size_t at = begin; text[at] == '|'; at = text.find('\n', at) + 1) {
    if (text[at + 1] == ' ' && at != begin) cells.insert(text.substr(at + 2, text.find(" |", at) - at - 2));
  }
  return cells;
}

TEST(Documentation, HasARowForEveryExitCodeAndCommand) {
  std::map<CodeKind, std::set<std::string>> codes;
  for (const CodeTable& table : codeTables()) {
    for (const Explanation& row : table.rows) codes[table.kind].insert(std::to_string(row.code));
  }
  EXPECT_EQ(documented("Deploying", "exit code"), codes[CodeKind::SetupExit]);
  EXPECT_EQ(documented("zarn-update", "exit code"), codes[CodeKind::ToolExit]);
  const std::string help = testing::readFile(ZARN_SOURCE "/tests/client/help.txt");
  for (const std::string& code : codes[CodeKind::ToolExit])
    EXPECT_THAT(help, HasSubstr("\n  " + code + "  "));
  std::set<std::string> shown;
  for (const Command& one : commands()) {
    shown.insert("`" + std::string(one.name) + (one.argument == nullptr ? "" : " ") +
                 (one.argument == nullptr ? "" : one.argument) + "`");
  }
  EXPECT_EQ(documented("zarn-update", "command"), shown);
}

}  // namespace
}  // namespace zarn::tool
