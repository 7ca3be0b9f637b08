// What zarn-update says. No part of this calls anybody or looks at the machine; only the
// system's words for errors, which every system has its own, are left out.
#include <map>
#include <sstream>

#include "client/install_under_way.h"
#include "client/tool/report/checks.h"
#include "client/tool/report/command_line.h"
#include "client/tool/report/explanations.h"
#include "client/tool/report/findings.h"
#include "client/tool/report/health.h"
#include "client/tool/report/moments.h"
#include "client/tool/report/newest_requests.h"
#include "client/tool/report/outcome.h"
#include "client/tool/report/progress.h"
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
  /// Of each command, which is the first word of what is added, the keys of its own.
  std::map<std::string, std::set<std::string>> keys;

  void add(const std::string& what, Answer answer) {
    for (std::size_t at; (at = answer.text.find("\n  Windows says:")) != std::string::npos;)
      answer.text.erase(at, answer.text.find('\n', at + 1) + 1 - at);
    for (const auto& [key, value] : answer.json.items()) keys[what.substr(0, what.find(' '))].insert(key);
    answer.json.erase("systemText");
    if (answer.json.contains("otherReadings"))
      for (Json& other : answer.json["otherReadings"]) other.erase("systemText");
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
    if (const auto* const mistake = std::get_if<Mistake>(&read)) return add(what, mistakeAnswer(*mistake));
    const auto& asked = std::get<Invocation>(read);
    text += "==== " + what + ": runs " + asked.command->name + " " + printable(asked.arguments.target) +
            (asked.arguments.json ? " for a script\n" : "\n");
  }
  void expect(const std::string& file) const {
    EXPECT_EQ(text, readFile(ZARN_SOURCE "/tests/client/" + file));
  }
};

/// What a file of answers says was asked with this beginning: its rest, up to the exit code or answer.
Lines askedIn(const std::string& file, const std::string& beginning) {
  Lines asked;
  std::istringstream lines(readFile(ZARN_SOURCE "/tests/client/" + file));
  for (std::string line; std::getline(lines, line);)
    if (const std::string head = "==== " + beginning; line.starts_with(head))
      asked.push_back(line.substr(head.size(), line.find(": ") - head.size()));
  EXPECT_GT(asked.size(), 20U) << file;
  return asked;
}

std::set<std::string> keysOf(const std::string& command) {
  const auto keys = jsonKeysOf(command);
  return {keys.begin(), keys.end()};
}

/// What the manual says in the row or list item that begins so, up to the next; empty when there is none.
std::string manualRow(const std::string& beginning) {
  static const std::string manual = "\n" + readFile(ZARN_SOURCE "/docs/zarn-update.md");
  const std::size_t begin = manual.find("\n" + beginning);
  EXPECT_NE(begin, std::string::npos) << "docs/zarn-update.md has nothing that begins with " << beginning;
  if (begin == std::string::npos) return "";
  const std::string rest = manual.substr(begin + 1 + beginning.size());
  return rest.substr(0, std::min({rest.find("\n| "), rest.find("\n- "), rest.find("\n\n")}));
}

TEST(CommandLine, HasItsHelpAndIsRefusedInOneSentence) {
  Transcript said;
  said.text = helpText(nullptr);
  for (const Command& command : commands())
    said.text += "==== " + std::string(command.name) + "\n" + helpText(&command);
  for (const std::string& line : askedIn("help.txt", "zarn-update"))
    if (!line.ends_with("\\x0a")) said.addCommandLine(line);
  said.addCommandLine(" status \x1b[2J\n");
  said.text += completionAnswer().text;
  said.expect("help.txt");
  const auto read = std::get<Invocation>(readCommandLine({"explain", "-2146762496", "--json"}));
  EXPECT_TRUE(read.arguments.target == "-2146762496" && read.arguments.json);
  EXPECT_TRUE(std::get<Mistake>(readCommandLine({"--json", "install"})).json);
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

/// The lines of a file with this text.
LinesFromEnd linesOf(const std::string& text, std::int64_t most, std::size_t block) {
  const auto read = [text](std::int64_t offset, std::size_t bytes) {
    return Result<std::string>(text.substr(static_cast<std::size_t>(offset), bytes));
  };
  return {std::ssize(text), most, read, block};
}

/// What is wanted of a file with this text.
History parseHistory(const std::string& text, const HistoryWish& wish = {}) {
  std::vector<RecordSequence> sequences(1);
  sequences[0].push_back(linesOf(text, std::ssize(text), 64));
  return newestRequests(std::move(sequences), wish);
}

TEST(Answers, AreWhatPeopleAndScriptsRelyOn) {
  Transcript said;
  for (const std::string& code : askedIn("answers.txt", "explain "))
    said.add("explain " + code, explanationAnswer(code));
  // The installer's exit code is shown where one ran.
  const std::pair<int, int> outcomes[] = {{0, 0},        {30000, 3010}, {30001, 1641},
                                          {30002, 1603}, {30002, 0},    {30003, 30003},
                                          {30004, 0},    {30005, 7},    {5, 7}};
  for (const auto& [status, code] : outcomes) {
    said.add("install", installAnswer("b\x1b", {status, code}, 2099ms));
    said.add("check", checkAnswer("b\x1b", Status{status}));
  }
  const CheckRecord noList{"identity", "failed", "no list: HTTP 404\x1b"};
  InstallRecord recorded;
  recorded.checks = {noList};
  recorded.status = Status::SignerRefused;
  said.add("install recorded", installAnswer("b", {30005, 0}, 1ms, {recorded, ""}));
  said.add("install not recorded", installAnswer("b", {30005, 0}, 1ms, {{}, "access was denied"}));
  said.add("install not recorded", installAnswer("b", {30002, 1603}, 1ms, {{}, "access was denied"}));
  said.add("check explained", checkAnswer("b", Status::SignerRefused, {{Status::SignerRefused, noList, ""}}));
  for (const WorkedOut& found : {WorkedOut{Status::Installed, {}, ""}, WorkedOut{Status::Failed, noList, ""},
                                 WorkedOut{Status::Failed, {}, "late\x1b"}})
    said.add("check not explained", checkAnswer("b", Status::SignerRefused, found));
  said.add("check of what cannot be installed", checkAnswer("b", Status::Installed, {}, "too large"));
  for (const auto& service : {kRunning, kStopped, kAbsent, Result<ServiceFacts>(failure(5))})
    said.add("install without answer", noAnswer({CallFailure::NotRunning, 1722}, service));
  for (const auto failure : {CallFailure::Refused, CallFailure::Interrupted, CallFailure::InvalidPath})
    said.add("check without answer", noAnswer({failure, 9}, kRunning));
  said.add("set-app-data", setAppDataAnswer(""));
  said.add("set-app-data", setAppDataAnswer("C:\\d\x1b"));

  std::string records = readFile(ZARN_SOURCE "/tests/client/history.jsonl");
  records.insert(records.find("\n{\"time\":\"3\""), "\r\n");  // an empty line before the third
  records.pop_back();
  History history = parseHistory(records);
  const RecordSource source{"F", {}, true};
  said.add("history", historyAnswer(source, "F/x", history));
  said.add("history --last 4", historyAnswer(source, "F/x", parseHistory(records, {4})));
  History cut = parseHistory(records, {1});
  cut.older->isExact = false;
  said.add("history --last 1", historyAnswer(source, "F/x", cut));
  cut.older = OlderRequests{}, cut.isCut = true;
  said.add("history --last 1", historyAnswer(source, "F/x", cut));
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
  said.add("history unread", historyAnswer(source, "F/x", history));
  said.add("history of nothing", historyAnswer({"F", {}, false}, "F/x", failure(2)));

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
  report.steps = {{"open", "passed", "\x1b"}, {"integrity", "refused", "31, x"}};
  report.signer = {"ab", "CN=\x1b"};
  report.host = "h";
  report.log = {"line"};
  said.add("verify", verificationAnswer("b", report));
  report.status = Status::Installed;
  report.steps.pop_back();
  report.signatureHolds = true;
  report.profile = {3, true};
  said.add("verify", verificationAnswer("b", report));
  report.profile->isHad = false;
  said.add("verify", verificationAnswer("b", report));
  said.add("set-app-data without answer", noAnswer({CallFailure::Refused, 5}, kRunning));
  for (const Reader reader : {Reader::Program, Reader::Person})
    said.text += jsonText(failed(ExitCode::Refused, "\xff\xc3\xa4"), "wait", reader);
  said.expect("answers.txt");
  for (const auto& [command, keys] : said.keys)
    EXPECT_EQ(keys, keysOf(command)) << command << " answers with other keys than jsonKeysOf() has";
}

TEST(Status, ShowsTheMachineAndIsOneLineForMonitoring) {
  Transcript said;
  ServiceReport report{kRunning, "1.1", "L", true, History(), {}, true};
  report.service->start = "delayed-auto";
  report.service->recovery = Recovery{{{"restart", 1000}, {"restart", 5000}, {"nothing", 0}}, 2 * 86400};
  report.runningVersion = versionOfBanner("[1] DEBUG - x\n[1] INFO - Zarn Update Service v1.0-ab - x\n");
  report.installing = InstallUnderWay{"2026-11-21T10:15:00.007Z", 7, "C:\\b\x1b"};
  report.authorities = {"C:\\a.pem", true, "", 3, 1, 1'800'000'000, "CN=\x1b"};
  report.tempFolder = "C:\\t";
  report.recordFolder = "C:\\r";
  report.earlierLogs = {"C:\\one", "C:\\two\x1b"};
  said.add("status", statusAnswer(report));
  report.service->recovery = Recovery{{{"restart", 90'500}, {"reboot", 60'000}}};
  report.installing = failure(kFolderNotTrusted);
  report.authorities.problem = "no certificate";
  said.add("status", statusAnswer(report));
  // What came of the last update, and whether a check of the configuration failed.
  const std::string ok = R"({"time":"1","status":30000,"exitCode":3010})",
                    refused = R"({"time":"3","status":30005})",
                    failed = R"({"time":"2","status":30002,"exitCode":1603,"path":"C:\\b.exe"})";
  const std::vector<Finding> wrong = {{"proxy", true, "p", "w"}, {"disk", false, "d\x1b.", "Make room"}};
  const std::tuple<Result<ServiceFacts>, std::string, std::vector<Finding>> cases[] = {
      {kRunning, ok, {}},
      {kRunning, ok + "\n" + failed, {}},
      {kRunning, failed + "\n" + ok + "\n" + refused + "\n" + refused, {}},
      {kRunning, refused, wrong},
      {kStopped, "", wrong},
      {kAbsent, "", {}}};
  for (const auto& [service, records, findings] : cases) {
    const auto newest = [&text = records](const HistoryWish& wish) {
      std::vector<RecordSequence> sequences(1);
      sequences[0].push_back(linesOf(text, 9999, 64));
      return newestRequests(std::move(sequences), wish);
    };
    said.add("status --check", checkedStatusAnswer({service, "1.1", "L", true, newest({1})},
                                                   newest({.last = 1, .onlyUpdates = true}), findings));
  }
  for (const std::uint32_t unread : {std::uint32_t{2}, kFolderNotTrusted})
    said.add("status --check", checkedStatusAnswer(report, failure(unread), {}));
  const auto back = [](const char* state, std::uint32_t code) {
    return mayBeComingBack(ServiceFacts{state, false, 0, code, "", ""});
  };
  EXPECT_TRUE(back("stopped", 1467) && back("starting", 0) && back("stopping", 0));
  EXPECT_FALSE(back("stopped", 0) || back("running", 1467) || mayBeComingBack(kAbsent));
  for (const char* head : {"", " - Zarn Update Service v\n", " - Zarn Update Service v1.0"})
    EXPECT_FALSE(versionOfBanner(head)) << head;
  said.expect("health.txt");
}

TEST(Doctor, SaysOfEachCheckWhatItFoundAndWhatToDo) {
  std::vector<Finding> found;
  ServiceFacts facts = *kRunning;
  for (const char* start : {"auto", "disabled"}) {
    facts.start = start;
    found.push_back(judgeService(facts));
    for (const auto& recovery :
         {Recovery{}, Recovery{{{"nothing", 0}, {"restart", 1}}}, Recovery{{{"restart", 1000}}, 9}}) {
      facts.recovery = recovery;
      found.push_back(judgeService(facts));
    }
    ServiceFacts stopped = *kStopped;
    stopped.start = start;
    found.push_back(judgeService(stopped));
  }
  found.push_back(judgeService(kAbsent));
  for (const char* problem : {"", "nobody."}) found.push_back(judgeEndpoint(problem));
  found.push_back(asWarning(found.back()));
  for (const Result<void>& rights : {Result<void>(), Result<void>(failure(kFolderNotTrusted))}) {
    found.push_back(judgeTempRights("T", rights));
    found.push_back(judgeRecordFolder("R", rights));
  }
  found.push_back(judgeTempRights("T", failure(SystemError::accessDenied())));
  for (const std::uint64_t free : {kAdvisedRoomBytes, kAdvisedRoomBytes - 1})
    found.push_back(judgeRoom("T", free));
  const LookedUp good{"h", {"1.2.3.4", "::1"}, ""}, bad{"p", {}, "none"};
  for (const auto& names :
       std::initializer_list<std::vector<LookedUp>>{{good}, {bad}, {bad, good}, {good, bad}})
    found.push_back(judgeLookUps(names));
  ListAnswer answer{"h", {}, 0, "HTTP status 404"};
  found.push_back(judgeList(answer));
  found.push_back(judgeClock(answer));
  for (const std::int64_t ahead : {0, 300, -300, 301, -301}) {
    answer.clockAheadSeconds = ahead;
    found.push_back(judgeClock(answer));
  }
  for (const std::size_t approved : {0U, 2U}) {
    answer.approved = approved;
    found.push_back(judgeList(answer));
  }
  for (const std::uint32_t code : {0U, 0x80092012U, 0x80092013U, 0x800b010eU, 0x800b0100U, 0x800b0109U})
    found.push_back(judgeRevocation("S", code));
  AuthorityList list{"L", false, "", 2, 0, 31 * 86400, "CN=a"};
  for (const bool isChosen : {false, true})
    for (const int expired : {0, 1, 2}) {
      list.isChosen = isChosen;
      list.expired = expired;
      found.push_back(judgeAuthorities(list, 0));
    }
  list.expired = 0;
  found.push_back(judgeAuthorities(list, 2 * 86400));
  EXPECT_EQ(doctorAnswer(found).text, readFile(ZARN_SOURCE "/tests/client/checks.txt"));
  for (const Finding& one : found) manualRow("| `" + one.name + "` |");
}

TEST(Waiting, EndsForWhatNoServiceIsWorkingOn) {
  std::string kept;
  for (const unsigned shown : {7U, 0U, 8U})
    for (const auto& service : {kRunning, kStopped, kAbsent, Result<ServiceFacts>(failure(5))})
      kept += client::isUnderWay({"", shown, ""}, processOf(service)) ? "yes " : "no ";
  EXPECT_EQ(kept, "yes no no yes yes no no yes no no no yes ");
}

TEST(Progress, IsInWholeSecondsAndSaysInTimeThatItMayBeLeft) {
  EXPECT_EQ(duration(59'999) + ", " + duration(60'000), "59.9 s, 1 min 00 s");
  EXPECT_EQ(sentence("a \r\n") + sentence("b.") + sentence("c?\n") + sentence("\n"), "a.b.c?");
  EXPECT_EQ(installingText(9'999ms, "running"), "Installing for 9 s; the service is running");
  EXPECT_EQ(waitingText(725s),
            "An update is being installed; waited 12 min 05 s; Ctrl+C ends only this wait");
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

std::string timesOf(const History& history) {
  std::string times;
  for (const InstallRecord& record : history.records) times += record.time;
  return times + "/" + std::to_string(history.skipped) + (history.isCut ? " cut" : "") +
         (!history.older           ? ""
          : history.older->isExact ? ", older: " + std::to_string(history.older->count)
                                   : ", older");
}

TEST(History, IsReadFromTheEndsAndMergedByTimeWithoutSorting) {
  const auto file = [](std::initializer_list<const char*> times, std::int64_t most) {
    std::string text = "torn\n";
    for (const char* time : times) {
      const bool failed = time[0] == '4' || time[0] == '2';
      text += "{\"time\":\"" + std::string(time) + "\",\"status\":" + (failed ? "5}\n\n" : "30000}\r\n");
    }
    return linesOf(text + "{\"to", most, 3);
  };
  const std::tuple<HistoryWish, std::int64_t, const char*> cases[] = {
      {{}, 999, "0122435/6"},          {{}, 40, "035/4 cut"},
      {{3}, 999, "435/2, older: 8"},   {{9}, 999, "0122435/6"},
      {{1, true}, 999, "4/2, older"},  {{9, true}, 999, "224/6"},
      {{0, false, "3"}, 999, "435/2"}, {{1, false, "3"}, 999, "5/2, older"}};
  for (const auto& [wish, most, wanted] : cases) {
    std::vector<RecordSequence> sequences(2);
    sequences[0].push_back(file({"2", "4", "3"}, most));
    sequences[0].push_back(file({"0"}, most));
    sequences[1].push_back(file({"1", "2", "5"}, most));
    EXPECT_EQ(timesOf(newestRequests(std::move(sequences), wish)), wanted);
  }
  std::vector<RecordSequence> sequences(1);
  sequences[0].push_back({9, 9, [](auto, auto) -> Result<std::string> { return failure(5); }});
  EXPECT_EQ(newestRequests(std::move(sequences), {}).unread, SystemError(5));
}

TEST(Moments, AreDaysTimesAndSpansInUtc) {
  for (const Lines& row : tableIn("client/moments.txt")) {
    const auto moment = momentFrom(row[0], std::chrono::sys_days(std::chrono::year(2026) / 3 / 1));
    EXPECT_EQ(moment ? isoTime(*moment) : "none", row[1]) << row[0];
  }
  EXPECT_EQ(momentBefore("2026-03-01T00:30:00.007Z", std::chrono::hours(1)), "2026-02-28T23:30:00.000Z");
}

/// What stands between backticks, but not in parentheses.
std::set<std::string> namesIn(const std::string& text) {
  std::set<std::string> names;
  std::string bare;
  bool isAside = false;
  for (const char c : text) {
    isAside = isAside ? c != ')' : c == '(';
    if (!isAside && c != ')') bare += c;
  }
  std::istringstream parts(bare);
  bool isName = false;
  for (std::string part; std::getline(parts, part, '`'); isName = !isName)
    if (isName) names.insert(part);
  return names;
}

TEST(Explanations, AreListedAll) {
  std::size_t rows = 0;
  for (const CodeTable& table : codeTables()) rows += table.rows.size();
  const Answer list = codeListAnswer();
  for (const auto& [text, hex] : {std::pair("deadbeef", "0xdeadbeef"), {"30004000", "0x01c9d320"}})
    EXPECT_EQ(explanationAnswer(text).json["hex"], hex);
  EXPECT_EQ(list.json["entries"].size(), rows);
  EXPECT_THAT(list.text, AllOf(StartsWith("Answer of the service:\nCODE "), HasSubstr("\nTrust error:\nCODE"),
                               HasSubstr("\n0x800b0100  TRUST_E_NOSIGNATURE")));
}

TEST(Documentation, HasARowForEveryExitCodeCommandOptionAndKey) {
  const std::string deploying = readFile(ZARN_SOURCE "/docs/operations.md");
  const std::string help = readFile(ZARN_SOURCE "/tests/client/help.txt");
  for (const CodeTable& table : codeTables())
    for (const Explanation& row : table.rows) {
      const std::string code = std::to_string(row.code);
      if (table.kind == CodeKind::PackageExit) {
        EXPECT_THAT(deploying, HasSubstr("\n| " + code + " |"));
      }
      if (table.kind != CodeKind::ToolExit) continue;
      manualRow("| " + code + " |");
      EXPECT_THAT(help, HasSubstr("\n  " + code + "  "));
    }
  for (const Command& command : commands()) {
    const auto said = namesIn(manualRow("| `" + usageOf(command) + "` |"));
    for (const OptionFacts& option : options())
      EXPECT_EQ(said.contains(usageOf(option)),
                option.option != Option::AsJson && knows(command, option.option))
          << command.name << " and " << option.name;
    EXPECT_EQ(namesIn(manualRow("- `" + std::string(command.name) + "`:")), keysOf(command.name))
        << command.name;
  }
}

}  // namespace
}  // namespace zarn::tool
