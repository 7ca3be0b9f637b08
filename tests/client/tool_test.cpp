// The built program, run as people and scripts run it. The tests stand in an
// order: nobody serves the endpoint, then a service that dies, then a fake one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include <future>
#include <nlohmann/json.hpp>
#include <set>

#include "client/guarded_call.h"
#include "client/tool/answer.h"
#include "client/update_client.h"
#include "support/run_program.h"
#include "update/interface/update_interface.h"
#include "update/record_folder.h"
#include "util/product_names.h"

namespace zarn::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using tool::Json;
using Arguments = std::vector<std::string>;

ProgramRun run(const Arguments& arguments) {
  return runProgram(ZARN_TOOL, arguments);
}

/// The object that the command prints with --json, once its exit code is right.
Json json(Arguments arguments, int exitCode) {
  arguments.emplace_back("--json");
  const ProgramRun result = run(arguments);
  const Json object = Json::parse(result.output, nullptr, false);
  const bool isRight = object.is_object() && object.value("command", "") == arguments[0] &&
                       object.value("exitCode", -1) == exitCode &&
                       object.value("ok", exitCode != 0) == (exitCode == 0) &&
                       result.exitCode == static_cast<DWORD>(exitCode);
  EXPECT_TRUE(isRight) << arguments[0] << " " << result.exitCode << ": " << result.output << result.error;
  return object.is_object() ? object : Json::object();
}

/// The command fails with this code, says so in one sentence, and prints nothing else.
void expectSentence(const Arguments& arguments, DWORD exitCode, const std::string& part) {
  const ProgramRun result = run(arguments);
  EXPECT_EQ(result.exitCode, exitCode) << result.error;
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.error, AllOf(HasSubstr(part), MatchesRegex("zarn-update: .+\\.\n")));
}

std::set<std::string> namesIn(const TempDirectory& directory) {
  std::set<std::string> names;
  for (const auto& entry : boost::filesystem::directory_iterator(FileUtils::toPath(directory.path()))) {
    names.insert(FileUtils::toUtf8(entry.path().filename()));
  }
  return names;
}

/// A Logs folder with what a service leaves there.
struct Logs : TempDirectory {
  Logs() {
    boost::filesystem::create_directories(FileUtils::toPath(*this / "Installer Logs"));
    writeFile(*this / "Zarn Update Service.log", std::string(300'000, 'x') + "\n");
    writeFile(*this / "Zarn Update Service.1.log", "");
    writeFile(*this / "Zarn Media Server.log", "not the service's");
    writeFile(*this / "Installer Logs\\Zarn Media Server \xC3\xA4.log", "setup");
    writeFile(*this / "Installer Logs\\other.log", "of nobody we know");
    writeFile(*this / "Update History.1.jsonl", "{\"time\":\"2026-11-20T10:15:00.123Z\",\"status\":0}\n");
    writeFile(*this / "Update History.jsonl",
              "{\"time\":\"2026-11-21T10:15:00.123Z\",\"path\":\"C:\\\\\xC3\xA4.exe\",\"status\":30004,"
              "\"checks\":[{\"name\":\"integrity\",\"verdict\":\"refused\",\"detail\":\"\"}]}\n{\"torn");
  }
};

std::string inZip(const std::string& zip, const std::string& name) {
  zip_t* const archive = zip_open(zip.c_str(), ZIP_RDONLY, nullptr);
  zip_file_t* const file = archive == nullptr ? nullptr : zip_fopen(archive, name.c_str(), 0);
  if (file == nullptr) return "not in it";
  std::string content(1'000'000, '\0');
  content.resize(static_cast<std::size_t>(zip_fread(file, content.data(), content.size())));
  zip_fclose(file);
  zip_discard(archive);
  return content;
}

TEST(Tool, AnswersBadInputInOneSentence) {
  const TempDirectory directory;
  writeFile(directory / "file.exe", "x");
  expectSentence({"install"}, 2, "BUNDLE");
  expectSentence({"explain", "five"}, 2, "five");
  for (const char* command : {"check", "install", "verify"}) {
    expectSentence({command, directory / "none.exe"}, 4, "no such file");
  }
  expectSentence({"check", directory.path()}, 4, "folder");
  expectSentence({"set-app-data", directory / "none"}, 4, "no such folder");
  expectSentence({"history", "--logs", directory / "none"}, 4, "cannot be read");
  for (const char* command : {"check", "install"}) {
    expectSentence({command, directory / "file.exe"}, 3, "update service is not");
  }
  expectSentence({"set-app-data", directory.path()}, 3, "update service is not");
  EXPECT_EQ(namesIn(directory), std::set<std::string>{"file.exe"});
  EXPECT_TRUE(json({"install", directory / "none.exe"}, 4)["error"].is_string());
}

TEST(Tool, ExplainsCodes) {
  EXPECT_EQ(json({"explain", "-2147024891"}, 0)["entries"][0]["name"], "ERROR_ACCESS_DENIED");
  EXPECT_TRUE(json({"explain", "123456"}, 1)["entries"].empty());
}

TEST(Tool, ShowsTheRecordThatCountsAndNoneThatOthersMayHaveWritten) {
  const std::string path = recordFolderPath();
  EXPECT_TRUE(json({"history"}, 0)["requests"].empty());
  EXPECT_EQ(json({"status"}, 3)["lastOutcome"], nullptr);
  {
    RecordFolder folder(path);
    InstallRecord record;
    for (int number = 0; number < 3; ++number) {
      record.time = isoTime(std::chrono::system_clock::time_point(std::chrono::hours(500'000 + number)));
      record.caller.image = "C:\\" + std::to_string(number);
      record.exitCode = number == 1 ? std::optional<std::uint32_t>(1603) : std::nullopt;
      ASSERT_TRUE(folder.append(record));
    }
  }
  const Json requests = json({"history"}, 0)["requests"];
  ASSERT_EQ(requests.size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(requests[i]["caller"]["image"], "C:\\" + std::to_string(i));
  EXPECT_EQ(json({"status"}, 3)["lastOutcome"]["time"], requests[2]["time"]);

  boost::filesystem::remove_all(FileUtils::toPath(path));
  writeFile(path, "no folder");
  expectSentence({"history"}, 4, "users may have written to it");
  boost::filesystem::remove_all(FileUtils::toPath(path));
}

TEST(Tool, ReadsTheHistoryAndPrefersTheCollectedRecordToTheCopyBesideTheLog) {
  const Logs logs;
  const TempDirectory target;
  const Arguments inLogs = {"history", "--logs", logs.path()};
  const Json history = json({"history", "--last", "5", "--logs", logs.path()}, 0);
  EXPECT_EQ(history["requests"][0]["time"], "2026-11-20T10:15:00.123Z");
  EXPECT_EQ(history["requests"][1]["path"], "C:\\\xC3\xA4.exe");
  EXPECT_EQ(history["skippedLines"], 1);
  boost::filesystem::remove(FileUtils::toPath(logs / "Update History.jsonl"));
  EXPECT_EQ(json(inLogs, 0)["requests"].size(), 1U) << "just moved away";

  boost::filesystem::create_directories(FileUtils::toPath(logs / "Record"));
  writeFile(logs / "Record\\Refused Requests.jsonl", "{\"time\":\"2026-11-22\",\"status\":30005}\n");
  writeFile(logs / "Record\\Update History.2026-11-21T10.15.00.007Z.jsonl",
            "{\"time\":\"2026-11-21\",\"status\":0}\n");
  writeFile(logs / "Record\\other", "not ours");
  EXPECT_EQ(json(inLogs, 0)["requests"].size(), 2U);
  const Json lastOutcome = json({"status", "--logs", logs.path()}, 3)["lastOutcome"];
  EXPECT_EQ(lastOutcome["source"].dump() + lastOutcome["status"].dump(), "\"history\"30005");
  json({"collect-logs", target / "folder", "--logs", logs.path()}, 0);
  EXPECT_FALSE(FileUtils::exists(target / "folder\\Record\\other"));
  EXPECT_EQ(json({"history", "--logs", target / "folder"}, 0)["requests"].size(), 2U);
}

TEST(Tool, CollectsTheServicesLogsButNothingThroughAPlantedLink) {
  const Logs logs;
  const TempDirectory target;
  writeFile(target / "secret", "secret");
  boost::filesystem::create_hard_link(FileUtils::toPath(target / "secret"),
                                      FileUtils::toPath(logs / "Zarn Update Service.2.log"));
  const std::string zip = target / "a.zip";
  const Json collected = json({"collect-logs", zip, "--logs", logs.path()}, 4);
  ASSERT_EQ(collected["missing"].size(), 1U);
  EXPECT_EQ(collected["missing"][0]["name"], "Zarn Update Service.2.log");
  EXPECT_EQ(json({"collect-logs", target / "folder", "--logs", logs.path()}, 4)["files"], collected["files"]);
  for (const char* name : {"Zarn Update Service.log", "Zarn Update Service.1.log", "Update History.jsonl",
                           "Installer Logs/Zarn Media Server \xC3\xA4.log"}) {
    EXPECT_EQ(inZip(zip, name), readFile(logs / name)) << name;
    EXPECT_EQ(readFile(FileUtils::join(target / "folder", name)), readFile(logs / name)) << name;
  }
  for (const char* name :
       {"Zarn Media Server.log", "Zarn Update Service.2.log", "Installer Logs/other.log"}) {
    EXPECT_EQ(inZip(zip, name), "not in it");
    EXPECT_FALSE(FileUtils::exists(FileUtils::join(target / "folder", name)));
  }
  EXPECT_EQ(Json::parse(inZip(zip, "status.json"))["lastOutcome"]["status"], 30004);
}

TEST(Tool, PassesOverPathsThatTheServiceDoesNotUse) {
  const TempDirectory data;
  const std::string logs = data / R"(Zarn Media Server\Logs)";
  ASSERT_TRUE(FileUtils::createDirectories(logs));
  writeFile(FileUtils::join(logs, "Zarn Update Service.log"), "newest");
  const std::string shared = R"(\\localhost\c$)" + data.path().substr(2);
  for (const auto& [type, path, isUsed] : {std::tuple{REG_SZ, data.path(), true},
                                           {REG_EXPAND_SZ, data.path(), false},
                                           {REG_SZ, shared, false},
                                           {REG_SZ, "relative", false}}) {
    const std::wstring text = StringUtils::utf8to16(path);
    ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, names::kPreferencesKey.wide, L"LocalAppDataPath",
                              static_cast<DWORD>(type), text.c_str(),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
              ERROR_SUCCESS);
    const std::string folder = json({"status"}, 3)["logFolder"];
    EXPECT_EQ(folder.starts_with(path), isUsed) << path << ": " << folder;
  }
  RegDeleteKeyValueW(HKEY_CURRENT_USER, names::kPreferencesKey.wide, L"LocalAppDataPath");
}

TEST(Tool, OverwritesNothingAndLeavesNothingHalfDone) {
  const Logs logs;
  const TempDirectory target;
  writeFile(target / "a.zip", "mine");
  boost::filesystem::create_directories(FileUtils::toPath(target / "folder"));
  writeFile(target / "folder\\b", "mine");
  const auto collect = [&](const std::string& to, const char* why) {
    expectSentence({"collect-logs", to, "--logs", logs.path()}, 4, why);
  };
  collect(target / "a.zip", "already");
  collect(target / "folder", "already");
  collect("Z:\\proc\\a.zip", "could not be written");
  collect(target / "none\\a.zip", "could not be written");
  EXPECT_EQ(readFile(target / "a.zip") + readFile(target / "folder\\b"), "minemine");
  EXPECT_EQ(namesIn(target), (std::set<std::string>{"a.zip", "folder"}));
}

TEST(Tool, VerifiesWithoutAServiceAndStopsAtTheFirstRefusal) {
  const TempDirectory directory;
  const auto expectVerdicts = [&](const std::string& file, const std::string& expected) {
    const Json verified = json({"verify", file}, 1);
    std::string verdicts;
    for (const Json& step : verified["steps"]) verdicts += step["verdict"].get<std::string>() + ", ";
    EXPECT_EQ(verdicts + verified["status"].dump(),
              expected + "not reached, not reached, not reached, not reached, 30002");
    EXPECT_EQ(verified["profile"]["asked"], false);
    EXPECT_EQ(verified["trusted"], false);
  };
  const std::string file = directory / "a.exe";
  writeFile(file, "x");
  boost::filesystem::resize_file(FileUtils::toPath(file), (std::uintmax_t{1} << 30) + 1);
  expectVerdicts(file, "passed, refused, ");
  const FileHandle writer(CreateFileW(FileUtils::toPath(file).c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                      nullptr, OPEN_EXISTING, 0, nullptr));
  expectVerdicts(file, "failed, not reached, ");
}

TEST(GuardedCall, ReturnsWhatAServerMayRaiseAndPassesOnWhatIsOurs) {
  for (DWORD code : {0x6BAU, 0x80070005U, 0xC0020017U, 0xE06D7363U}) {
    const auto raise = [](void* raised) { RaiseException(*static_cast<DWORD*>(raised), 0, 0, nullptr); };
    EXPECT_EQ(client::callCatchingRpcExceptions(raise, &code), code);
  }
  EXPECT_THROW(client::callCatchingRpcExceptions([](void*) { throw 1; }, nullptr), int);
  const auto cutShort = client::UpdateClient().install(std::wstring(L"a\0b", 3));
  EXPECT_EQ(cutShort.error().failure, client::CallFailure::InvalidPath);
}

TEST(ToolAndService, AServiceThatDiesInTheCallLeavesTheOutcomeUnknown) {
  const TempDirectory directory;
  writeFile(directory / "a.exe", "x");
  SetEnvironmentVariableW(L"ZARN_HELPER", L"serve");
  auto helper = std::async(std::launch::async, [] { return runProgram(ZARN_DYING_SERVICE, {}); });
  ProgramRun result{3, "", ""};
  for (int tries = 0; tries < 100 && result.exitCode == 3; ++tries) {
    result = run({"install", directory / "a.exe"});  // until it listens
  }
  EXPECT_EQ(result.exitCode, 5U) << result.error;
  EXPECT_THAT(result.error, HasSubstr("unknown"));
  helper.get();
}

/// Stands at the endpoint of the service until the process ends, and answers as the test says.
struct FakeService {
  FakeService() {
    static update_interface::ServerInterface served({setLocalAppDataPath, checkBundle, install});
    using update_interface::rpcText;
    RpcServerUseProtseqEpW(rpcText(update_interface::kProtocolSequence), 1,
                           rpcText(update_interface::kEndpoint), nullptr);
    RpcServerRegisterIf(served.handle(), nullptr, nullptr);
    EXPECT_EQ(RpcServerListen(1, 1, TRUE), RPC_S_OK);
  }
  static void setLocalAppDataPath(handle_t, const wchar_t* given) { path = StringUtils::utf16to8(given); }
  static long checkBundle(handle_t, const wchar_t* given) {
    if (fault != 0) RpcRaiseException(fault);
    path = StringUtils::utf16to8(given);
    return status;
  }
  static long install(handle_t, const wchar_t* given, long* exitCode) {
    *exitCode = installerExitCode;
    return checkBundle(nullptr, given);
  }
  static inline std::int32_t status = 0;
  static inline RPC_STATUS fault = 0;  // raised instead of an answer
  static inline std::int32_t installerExitCode = 0;
  static inline std::string path;  // of the last call
};

TEST(ToolAndService, AnswersBecomeWordsAndExitCodes) {
  FakeService service;
  const TempDirectory directory;
  const std::string bundle = directory / "b\xC3\xA4 c.exe";
  writeFile(bundle, "x");
  const struct {
    std::int32_t status;
    std::int32_t installer;
    int exitCode;
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
    EXPECT_EQ(service.path, bundle);
  }
  for (const std::int32_t status : {0, 30005}) {
    service.status = status;
    EXPECT_EQ(json({"check", bundle}, status == 0 ? 0 : 1)["trusted"], status == 0);
  }
  const ProgramRun refused = run({"install", bundle});
  EXPECT_THAT(refused.output, AllOf(HasSubstr("b\xC3\xA4 c.exe"), HasSubstr("Next:")));
  EXPECT_EQ(refused.error, "") << "an answer is no error, and nobody watches";
  EXPECT_EQ(run({"set-app-data", directory.path()}).exitCode, 0U);
  EXPECT_EQ(service.path, directory.path());
  // What the runtime raises for a server that is not the system.
  for (const RPC_STATUS raised : {RPC_STATUS{RPC_S_ACCESS_DENIED}, RPC_STATUS{RPC_S_SEC_PKG_ERROR}}) {
    service.fault = raised;
    expectSentence({"check", bundle}, 3, "another program stands in its place");
  }
}

}  // namespace
}  // namespace zarn::testing
