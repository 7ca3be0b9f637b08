// The built program, run as people and scripts run it. The tests stand in an
// order: nobody serves the endpoint, then a service that dies, then a fake one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include <future>
#include <nlohmann/json.hpp>

#include "client/tool/answer.h"
#include "fake_service.h"
#include "support/run_program.h"
#include "support/temp_directory.h"
#include "util/version.h"

namespace zarn::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using tool::Json;

ProgramRun run(const std::vector<std::string>& arguments, HANDLE output = nullptr) {
  return runProgram(ZARN_TOOL, arguments, output);
}

/// The object that the command prints with --json, once its exit code is right.
Json json(std::vector<std::string> arguments, DWORD exitCode) {
  const std::string command = arguments[0];
  arguments.emplace_back("--json");
  const ProgramRun result = run(arguments);
  Json object = Json::parse(result.output, nullptr, false);
  EXPECT_EQ(result.exitCode, exitCode) << result.output << result.error;
  if (!object.is_object()) {
    ADD_FAILURE() << command << " printed: " << result.output;
    return Json::object();
  }
  EXPECT_EQ(object.value("command", ""), command);
  EXPECT_EQ(object.value("ok", exitCode != 0), exitCode == 0);
  EXPECT_EQ(object.value("exitCode", -1), static_cast<int>(exitCode));
  return object;
}

/// The command fails with this code, says so in one sentence, and prints nothing else.
void expectSentence(const std::vector<std::string>& arguments, DWORD exitCode, const std::string& part) {
  const ProgramRun result = run(arguments);
  EXPECT_EQ(result.exitCode, exitCode) << result.error;
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.error, AllOf(HasSubstr(part), MatchesRegex("zarn-update: .+\\.\n")));
}

/// Whether nothing but `names` lies in the directory.
void expectOnly(const TempDirectory& directory, const std::set<std::string>& names) {
  std::set<std::string> found;
  for (const auto& entry : boost::filesystem::directory_iterator(FileUtils::toPath(directory.path()))) {
    found.insert(FileUtils::toUtf8(entry.path().filename()));
  }
  EXPECT_EQ(found, names);
}

/// A Logs folder with what a service leaves there.
class Logs {
 public:
  Logs() {
    boost::filesystem::create_directories(FileUtils::toPath(directory_ / "Installer Logs"));
    writeFile(directory_ / "Zarn Update Service.log", std::string(300'000, 'x') + "\n");
    writeFile(directory_ / "Zarn Update Service.1.log", "");
    writeFile(directory_ / "Zarn Media Server.log", "not the service's");
    writeFile(directory_ / "Installer Logs\\Zarn Media Server \xC3\xA4.log", "setup");
    writeFile(directory_ / "Update History.jsonl",
              "{\"time\":\"2026-11-21T10:15:00.123Z\",\"path\":\"C:\\\\\xC3\xA4.exe\",\"status\":30004,"
              "\"checks\":[{\"name\":\"integrity\",\"verdict\":\"refused\",\"detail\":\"\"}]}\n{\"torn");
  }
  [[nodiscard]] std::string path() const { return directory_.path(); }
  [[nodiscard]] std::string operator/(std::string_view name) const { return directory_ / name; }

 private:
  TempDirectory directory_;
};

std::string inZip(const std::string& zip, const std::string& name) {
  int error = 0;
  zip_t* const archive = zip_open(zip.c_str(), ZIP_RDONLY, &error);
  if (archive == nullptr) return "no archive";
  std::string content = "not in it";
  if (zip_file_t* const file = zip_fopen(archive, name.c_str(), 0)) {
    content.resize(1'000'000);
    content.resize(static_cast<std::size_t>(zip_fread(file, content.data(), content.size())));
    zip_fclose(file);
  }
  zip_discard(archive);
  return content;
}

TEST(Tool, AnswersBadInputInOneSentence) {
  const TempDirectory directory;
  writeFile(directory / "file.exe", "x");
  expectSentence({}, 2, "subcommand");
  expectSentence({"install"}, 2, "BUNDLE");
  expectSentence({"explain", "five"}, 2, "five");
  expectSentence({"install", directory / "none.exe"}, 4, "no such file");
  expectSentence({"check", directory.path()}, 4, "folder");
  expectSentence({"verify", directory / "none.exe"}, 4, "no such file");
  expectSentence({"set-app-data", directory / "file.exe"}, 4, "no such folder");
  expectSentence({"history", "--logs", directory / "none"}, 4, "cannot be read");
  expectSentence({"collect-logs", directory / "a.zip", "--logs", directory / "none"}, 4, "cannot be read");
  for (const char* command : {"check", "install"}) {
    expectSentence({command, directory / "file.exe"}, 3, "update service is not");
  }
  expectSentence({"set-app-data", directory.path()}, 3, "update service is not");
  expectOnly(directory, {"file.exe"});
  EXPECT_EQ(json({"install", directory / "none.exe"}, 4)["error"].is_string(), true);
}

TEST(Tool, SaysWhenItsOutputIsLost) {
  const FileHandle full(
      CreateFileW(L"Z:\\dev\\full", GENERIC_WRITE, FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
  SetHandleInformation(full.get(), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  const ProgramRun result = run({"explain", "5"}, full.get());
  EXPECT_EQ(result.exitCode, 4U);
  EXPECT_THAT(result.error, MatchesRegex("zarn-update: The output could not be written: .+\\.\n"));
}

TEST(Tool, TellsItsVersionAndExplains) {
  EXPECT_EQ(run({"--version"}).output, std::string("zarn-update ") + kVersion + "\n");
  EXPECT_THAT(run({"explain", "0x800B0100"}).output, HasSubstr("TRUST_E_NOSIGNATURE"));
  EXPECT_EQ(json({"explain", "-2147024891"}, 0)["entries"][0]["name"], "ERROR_ACCESS_DENIED");
  EXPECT_EQ(json({"explain", "123456"}, 1)["entries"].size(), 0U);
}

TEST(Tool, ReadsTheHistory) {
  const Logs logs;
  EXPECT_THAT(run({"history", "--logs", logs.path()}).output,
              AllOf(HasSubstr("refused at integrity"), HasSubstr("1 line(s)"), HasSubstr("\xC3\xA4.exe")));
  const Json history = json({"history", "--last", "5", "--logs", logs.path()}, 0);
  EXPECT_EQ(history["requests"][0]["path"], "C:\\\xC3\xA4.exe");
  EXPECT_EQ(history["skippedLines"], 1);
  const Json status = json({"status", "--logs", logs.path()}, 3);
  EXPECT_EQ(status["lastOutcome"]["status"], 30004);
  EXPECT_EQ(status["lastOutcome"]["source"], "history");
}

TEST(Tool, CollectsLogsIntoAZipOrAFolder) {
  const Logs logs;
  const TempDirectory target;
  const Json collected = json({"collect-logs", target / "a.zip", "--logs", logs.path()}, 0);
  EXPECT_EQ(collected["files"].size(), 4U);
  json({"collect-logs", target / "folder", "--logs", logs.path()}, 0);
  for (const char* name : {"Zarn Update Service.log", "Zarn Update Service.1.log", "Update History.jsonl",
                           "Installer Logs/Zarn Media Server \xC3\xA4.log"}) {
    EXPECT_EQ(inZip(target / "a.zip", name), readFile(logs / name)) << name;
    EXPECT_EQ(readFile(FileUtils::join(target / "folder", name)), readFile(logs / name)) << name;
  }
  EXPECT_EQ(inZip(target / "a.zip", "Zarn Media Server.log"), "not in it");
  EXPECT_EQ(Json::parse(inZip(target / "a.zip", "status.json"))["lastOutcome"]["status"], 30004);
  expectOnly(target, {"a.zip", "folder"});
}

TEST(Tool, OverwritesNothingAndLeavesNothingHalfDone) {
  const Logs logs;
  const TempDirectory target;
  writeFile(target / "a.zip", "mine");
  boost::filesystem::create_directories(FileUtils::toPath(target / "folder"));
  writeFile(target / "folder\\b", "mine");
  expectSentence({"collect-logs", target / "a.zip", "--logs", logs.path()}, 4, "already");
  expectSentence({"collect-logs", target / "folder", "--logs", logs.path()}, 4, "already");
  for (const char* unwritable : {"Z:\\proc\\a.zip", "Z:\\proc\\folder"}) {
    expectSentence({"collect-logs", unwritable, "--logs", logs.path()}, 4, "could not be written");
  }
  expectSentence({"collect-logs", target / "none\\a.zip", "--logs", logs.path()}, 4, "could not be written");
  EXPECT_EQ(readFile(target / "a.zip"), "mine");
  EXPECT_EQ(readFile(target / "folder\\b"), "mine");
  expectOnly(target, {"a.zip", "folder"});
}

TEST(Tool, CollectsNothingThroughAPlantedLink) {
  const Logs logs;
  const TempDirectory target;
  writeFile(target / "secret", "secret");
  ASSERT_NE(CreateHardLinkW(FileUtils::toPath(logs / "Zarn Update Service.2.log").c_str(),
                            FileUtils::toPath(target / "secret").c_str(), nullptr),
            0);
  const Json collected = json({"collect-logs", target / "a.zip", "--logs", logs.path()}, 4);
  EXPECT_EQ(collected["files"].size(), 4U);
  ASSERT_EQ(collected["missing"].size(), 1U);
  EXPECT_EQ(collected["missing"][0]["name"], "Zarn Update Service.2.log");
  EXPECT_EQ(inZip(target / "a.zip", "Zarn Update Service.2.log"), "not in it");
}

TEST(Tool, VerifiesWithoutAServiceAndStopsAtTheFirstRefusal) {
  const TempDirectory directory;
  const auto verdicts = [](const std::string& bundle) {
    std::string text;
    const Json verified = json({"verify", bundle}, 1);
    for (const Json& step : verified["steps"]) text += step["verdict"].get<std::string>() + " ";
    EXPECT_EQ(verified["profile"]["asked"], false) << bundle;
    EXPECT_EQ(verified["trusted"], false) << bundle;
    return text + std::to_string(verified["status"].get<int>());
  };
  writeFile(directory / "unsigned.exe", readFile(ZARN_TOOL));
  writeFile(directory / "CAPITALS.EXE", "x");
  EXPECT_EQ(verdicts(directory / "unsigned.exe"), "passed passed passed refused not reached 30004");
  EXPECT_EQ(verdicts(directory / "CAPITALS.EXE"), "passed passed refused not reached not reached 30002");
  // One byte too long, and nothing but a hole.
  const std::string large = directory / "large.exe";
  writeFile(large, "x");
  boost::filesystem::resize_file(FileUtils::toPath(large), (std::uintmax_t{1} << 30) + 1);
  EXPECT_EQ(verdicts(large), "passed refused not reached not reached not reached 30002");
  const FileHandle writer(CreateFileW(FileUtils::toPath(directory / "unsigned.exe").c_str(), GENERIC_WRITE,
                                      FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_EQ(verdicts(directory / "unsigned.exe"),
            "failed not reached not reached not reached not reached 30002");
}

TEST(ToolAndService, AServiceThatDiesInTheCallLeavesTheOutcomeUnknown) {
  const TempDirectory directory;
  writeFile(directory / "a.exe", "x");
  SetEnvironmentVariableW(L"ZARN_HELPER", L"serve UpdateServiceEndpoint");
  auto helper = std::async(std::launch::async, [] { return runProgram(ZARN_DYING_SERVICE, {}); });
  ProgramRun result;
  for (int tries = 0; tries < 100; ++tries) {
    result = run({"install", directory / "a.exe"});
    if (result.exitCode != 3) break;  // until it listens
  }
  EXPECT_EQ(result.exitCode, 5U) << result.error;
  EXPECT_THAT(result.error, HasSubstr("unknown"));
  helper.get();
}

TEST(ToolAndService, AnswersBecomeWordsAndExitCodes) {
  FakeService& service = FakeService::instance();
  const TempDirectory directory;
  const std::string bundle = directory / "b\xC3\xA4 c.exe";
  writeFile(bundle, "x");
  const struct {
    std::int32_t status;
    std::int32_t installer;
    DWORD exitCode;
    Json shownInstaller;
  } cases[] = {{0, 0, 0, 0},           {30000, 3010, 0, 3010}, {30001, 1641, 0, 1641},
               {30002, 1603, 1, 1603}, {30002, 0, 1, nullptr}, {30003, 30003, 1, 30003},
               {30004, 0, 1, nullptr}, {30005, 0, 1, nullptr}, {5, 0, 1, nullptr}};
  for (const auto& one : cases) {
    service.status = one.status;
    service.installerExitCode = one.installer;
    const Json installed = json({"install", bundle}, one.exitCode);
    EXPECT_EQ(installed["status"], one.status);
    EXPECT_EQ(installed["installerExitCode"], one.shownInstaller) << one.status;
    EXPECT_EQ(installed["installed"], one.exitCode == 0);
    EXPECT_NE(installed["meaning"], "");
    EXPECT_EQ(service.path, bundle);
  }
  for (const std::int32_t status : {0, 30004, 30005}) {
    service.status = status;
    EXPECT_EQ(json({"check", bundle}, status == 0 ? 0 : 1)["trusted"], status == 0);
  }
  const ProgramRun refused = run({"install", bundle});
  EXPECT_THAT(refused.output, AllOf(HasSubstr("b\xC3\xA4 c.exe"), HasSubstr("Next:")));
  EXPECT_EQ(refused.error, "") << "an answer is no error, and nobody watches";
  run({"set-app-data", directory.path()});
  EXPECT_EQ(service.path, directory.path());
}

}  // namespace
}  // namespace zarn::testing
