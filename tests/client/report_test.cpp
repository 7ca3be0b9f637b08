// What zarn-update says. No part of this calls anybody or looks at the machine; only the
// system's words for errors, which every system has its own, are left out.
#include "client/install_under_way.h"
#include "client/tool/report/command_line.h"
#include "client/tool/report/explanations.h"
#include "client/tool/report/findings.h"
#include "client/tool/report/outcome.h"
#include "client/tool/report/text.h"
#include "client/tool/report/verification_report.h"
#include "client/tool/report/waiting.h"
#include "support/test.h"
#include "update/record_folder.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

using namespace testing;
using client::CallFailure;

/// Collects answers in full, to be compared with a file that people have read.
struct Transcript {
  std::string text;

  void add(const std::string& what, Answer answer) {
    answer.text.erase(std::min(answer.text.find("\n  Windows says:"), answer.text.size()));
    answer.json.erase("systemText");
    text += "==== " + what + ": " + std::to_string(static_cast<int>(answer.exitCode)) + "\n" + answer.text;
    if (!answer.error.empty()) text += "error: " + answer.error + "\n";
    if (!answer.json.empty()) text += answer.json.dump() + "\n";
  }
  /// With a blank before each argument.
  void addCommandLine(const std::string& line) {
    Lines arguments;
    std::istringstream words(line.substr(std::min<std::size_t>(line.size(), 1)));
    for (std::string word; std::getline(words, word, ' ');) arguments.push_back(word);
    const std::string what = "zarn-update" + printable(line);
    const CommandLine read = readCommandLine(arguments);
    if (const auto* const asked = std::get_if<Information>(&read))
      text += "==== " + what + "\n" + asked->text;
    if (const auto* const mistake = std::get_if<Mistake>(&read))
      add(what, failed(ExitCode::WrongArguments, mistake->sentence));
  }
  void expect(const std::string& file) const {
    EXPECT_EQ(text, readFile(ZARN_SOURCE "/tests/client/" + file));
  }
};

TEST(CommandLine, HasItsHelpAndIsRefusedInOneSentence) {
  Transcript said;
  said.addCommandLine(" --help");
  for (const Command& command : commands()) said.addCommandLine(" " + std::string(command.name) + " --help");
  for (const char* wrong : {"", " install", " install a b", " install --force a", " history --last -1",
                            " status install a", " wait 86401", " wait -1", " wait 1s", " check a \x1b[2J\n"})
    said.addCommandLine(wrong);
  said.expect("help.txt");
  const auto read = std::get<Invocation>(readCommandLine({"explain", "-2146762496", "--json"}));
  EXPECT_TRUE(read.arguments.target == "-2146762496" && read.arguments.json);
  EXPECT_TRUE(std::get<Mistake>(readCommandLine({"install", "--json"})).json);
}

const Result<ServiceFacts> kRunning = ServiceFacts{"running", true, 7, 0, "C:\\s.exe", "LocalSystem"};
const Result<ServiceFacts> kStopped = ServiceFacts{"stopped", false, 0, 1467, "C:\\s.exe", "LocalSystem"};
const Result<ServiceFacts> kAbsent = failure(1060);

std::vector<Setting> inForce(const StoredSettings& policy, const Environments& environments) {
  std::array<Setting, kPolicySettingCount> otherwise;
  for (std::size_t i = 0; i < otherwise.size(); ++i)
    otherwise[i] = {policySettings()[i].value, "", SettingSource::BuiltIn, {}};
  otherwise[0].value = "built.in";
  otherwise[5] = {"LogLevel", "verbose", SettingSource::Preference, {}};
  return settingsInForce(policy, environments, otherwise);
}

TEST(Settings, ComeFromThePolicyThenTheServiceThenTheMachine) {
  const auto host = [](const char* text) {
    return Variables{{"ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST", text}, {"HTTPS_PROXY", "p"}};
  };
  const Stored<std::string> none;
  const Variables proxies{{"NO_PROXY", "x"}, {"ALL_PROXY", "y"}}, signedIn = host("https://u:secret@h");
  const std::pair<StoredSettings, Environments> cases[] = {{{}, {}},
                                                           {{}, {{}, host("m")}},
                                                           {{}, {host("s"), host("m")}},
                                                           {{}, {host("s"), proxies}},
                                                           {{none, "p"}, {host("s"), proxies}},
                                                           {{"p", "p"}, {host("s"), proxies}},
                                                           {{""}, {host("s"), proxies}},
                                                           {{"a b"}, {host("s"), proxies}},
                                                           {{}, {Unreadable{"", true}, proxies}},
                                                           {{"https://u:secret@h"}, {signedIn, proxies}},
                                                           {{}, {signedIn, proxies}}};
  Transcript said;
  for (const auto& [policy, environments] : cases) {
    auto settings = inForce(policy, environments);
    settings.resize(3);
    said.text += settingsText(settings) + "\n" + settingsArray(settings).dump() + "\n";
  }
  said.expect("settings.txt");
}

TEST(Settings, HaveChangedWhenOneWasWrittenAfterTheStart) {
  using Known = std::optional<bool>;
  EXPECT_EQ(changedSince({}, {9}), Known());
  EXPECT_EQ(changedSince(5, {0, 5}), Known(false));
  EXPECT_EQ(changedSince(5, {0, 6, std::nullopt}), Known(true));
  EXPECT_EQ(changedSince(5, {0, std::nullopt}), Known());
}

TEST(Answers, AreWhatPeopleAndScriptsRelyOn) {
  Transcript said;
  for (const char* code : {"0", "30004", "-2147024891", "0XC0000005", "3221225786", "-2147483649",
                           "4294967296", "-0x1", "0x", "0x-1", "", "-", "--1", "5 ", "+5", "five"})
    said.add(code, explanationAnswer(code));
  // The installer's exit code is shown where one ran.
  const std::pair<int, int> outcomes[] = {{0, 0},        {30000, 3010}, {30001, 1641},
                                          {30002, 1603}, {30002, 0},    {30003, 30003},
                                          {30004, 0},    {30005, 7},    {5, 7}};
  for (const auto& [status, code] : outcomes) {
    said.add("install", installAnswer("b\x1b", {status, code}, 2099ms));
    said.add("check", checkAnswer("b\x1b", Status{status}));
  }
  for (const auto& service : {kRunning, kStopped, kAbsent, Result<ServiceFacts>(failure(5))})
    said.add("not running", noAnswer({CallFailure::NotRunning, 1722}, service));
  for (const auto failure : {CallFailure::Refused, CallFailure::Interrupted, CallFailure::InvalidPath})
    said.add("no answer", noAnswer({failure, 9}, kRunning));
  said.add("set-app-data", setAppDataAnswer(""));
  said.add("set-app-data", setAppDataAnswer("C:\\d\x1b"));

  std::string records = readFile(ZARN_SOURCE "/tests/client/history.jsonl");
  records.insert(records.find("\n{\"time\":\"3\""), "\r\n");  // an empty line before the third
  records.pop_back();
  History history = parseHistory(records);
  const RecordSource source{"F", {}, true};
  said.add("history", historyAnswer(source, "F/x", history, 0));
  history.isCut = true;
  said.add("the newest", historyAnswer(source, "F/x", history, 1));
  // Of each source one, and what cannot be read or used.
  const Stored<std::string> none;
  const Variables service{{"Https_Proxy", ""}, {"ZARN_MEDIA_SERVER_LOG_LEVEL", "trace"}},
      machine{{"HTTPS_PROXY", "hidden"},
              {"all_proxy", "socks5://u:p@ss@h:1"},
              {"no_proxy", "\x1b"},
              {"ZARN_MEDIA_SERVER_SYSLOG_COLLECTOR", "h:2"}};
  const auto settings =
      inForce({none, none, none, none, "0", "trace", "", Unreadable{"", true}}, {service, machine});
  said.add("status", statusAnswer({kRunning, "1.0", "L", true, history, settings, true}));
  said.add("status", statusAnswer({kStopped, "1.0", "L", false, failure(2), {}, false}));
  said.add("status", statusAnswer({kAbsent, "", "", false, failure(kFolderNotTrusted)}));
  history.unread = SystemError(kFolderNotTrusted);
  said.add("unread history", historyAnswer(source, "F/x", history, 0));
  said.add("no history", historyAnswer({"F", {}, false}, "F/x", failure(2), 0));

  const InstallUnderWay installing{"2026-11-21T10:15:00.007Z", 7, "C:\\b\x1b"};
  said.add("wait", waitAnswer(std::nullopt, 5ms));
  said.add("wait", waitAnswer(failure(kFolderNotTrusted), 5ms));
  said.add("wait", waitAnswer(std::optional(installing), 61s));
  said.add("wait", waitAnswer(std::optional(InstallUnderWay{}), 0s));

  said.add("doctor",
           doctorAnswer({{"proxy", true, "none", ""}, {"temp folder", true, "C:\\a b", "Use\x1b"}}));
  said.add("doctor", doctorAnswer({{"authorities", false, "F\x1b", "Choose"}}));

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
  said.text += jsonText(failed(ExitCode::Refused, "\xff"), "c");
  said.expect("answers.txt");
}

TEST(Waiting, EndsForWhatNoServiceIsWorkingOn) {
  std::string kept;
  for (const unsigned shown : {7U, 0U, 8U})
    for (const auto& service : {kRunning, kStopped, kAbsent, Result<ServiceFacts>(failure(5))})
      kept += client::isUnderWay({"", shown, ""}, processOf(service)) ? "yes " : "no ";
  EXPECT_EQ(kept, "yes no no yes yes no no yes no no no yes ");
}

TEST(Answers, OfOtherFailuresHaveTheSystemsWordsAndSizesTheirUnit) {
  EXPECT_THAT(noAnswer({CallFailure::Other, 9}, kRunning).error, HasSubstr("RPC status 9, "));
  EXPECT_EQ(waitAnswer(failure(5), {}).exitCode, ExitCode::LocalFailure) << "nobody knows";
  EXPECT_THAT(statusAnswer({failure(5), "", "", false, History()}).text, HasSubstr("unknown: "));
  for (const char* line : {"\"C:\\a b\\s.exe\" -x", "C:\\a b\\s.exe -x"})
    EXPECT_EQ(programOfCommandLine(line), "C:\\a b\\s.exe");
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

TEST(Documentation, HasARowForEveryExitCodeAndCommand) {
  const std::string deploying = readFile(ZARN_SOURCE "/docs/operations.md");
  const std::string manual = readFile(ZARN_SOURCE "/docs/zarn-update.md");
  const std::string help = readFile(ZARN_SOURCE "/tests/client/help.txt");
  for (const CodeTable& table : codeTables())
    for (const Explanation& row : table.rows) {
      const std::string code = std::to_string(row.code);
      if (table.kind == CodeKind::PackageExit) {
        EXPECT_THAT(deploying, HasSubstr("\n| " + code + " |"));
      }
      if (table.kind != CodeKind::ToolExit) continue;
      EXPECT_THAT(manual, HasSubstr("\n| " + code + " |"));
      EXPECT_THAT(help, HasSubstr("\n  " + code + "  "));
    }
  for (const Command& one : commands()) EXPECT_THAT(manual, HasSubstr("\n| `" + usageOf(one) + "` |"));
}

}  // namespace
}  // namespace zarn::tool
