// The built program, run as people and scripts run it. The tests stand in an
// order: nobody serves the endpoint, then a service that dies, then a fake one.
#include <gmock/gmock.h>
#include <zip.h>

#include <future>
#include <map>

#include "client/tool/machine/record.h"
#include "client/tool/report/answer.h"
#include "client/update_client.h"
#include "os/registry.h"
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
  EXPECT_TRUE(object.is_object() && object.value("command", "") == arguments[0] &&
              object.value("exitCode", -1) == exitCode && result.exitCode == static_cast<DWORD>(exitCode))
      << result.exitCode << result.output << result.error;
  return object.is_object() ? object : Json::object();
}

/// The command fails with this code, says so in one sentence, and prints nothing else.
void expectSentence(const Arguments& arguments, DWORD exitCode, const std::string& part) {
  const ProgramRun result = run(arguments);
  EXPECT_EQ(result.exitCode, exitCode) << result.error;
  EXPECT_THAT(result.output + result.error, AllOf(HasSubstr(part), MatchesRegex("zarn-update: .+\\.\n")));
}

/// Names, with '/' between folders, and contents.
using Files = std::map<std::string, std::string>;

Files filesIn(const std::string& folder) {
  Files files;
  const auto root = FileUtils::toPath(folder);
  for (const auto& entry : boost::filesystem::recursive_directory_iterator(root)) {
    const std::string name = FileUtils::toUtf8(entry.path().lexically_relative(root).generic_path());
    if (is_regular_file(entry)) files[name] = readFile(FileUtils::toUtf8(entry.path()));
  }
  return files;
}

Files filesInZip(const std::string& path) {
  Files files;
  zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, nullptr);
  const auto nameOf = [&](zip_uint64_t i) {
    return archive != nullptr ? zip_get_name(archive, i, 0) : nullptr;
  };
  for (zip_uint64_t i = 0; const char* name = nameOf(i); ++i) {
    zip_file_t* const file = zip_fopen_index(archive, i, 0);
    std::string& content = files[name];
    content.resize(1'000'000);
    content.resize(static_cast<std::size_t>(zip_fread(file, content.data(), content.size())));
    zip_fclose(file);
  }
  zip_discard(archive);
  return files;
}

/// A Logs folder with what a service leaves there.
struct Logs : TempDirectory {
  Logs() {
    for (const char* folder : {"Installer Logs", "Record"})
      boost::filesystem::create_directories(FileUtils::toPath(*this / folder));
    for (const char* name : {"Zarn Media Server.log", "Installer Logs\\other.log", "Record\\other"})
      writeFile(*this / name, "not the service's");
    for (const auto& [name, content] : service) writeFile(*this / name, content);
  }
  Files service = {
      {"Zarn Update Service.log", std::string(300'000, 'x') + "\n"},
      {"Zarn Update Service.1.log", ""},
      {"Installer Logs/Zarn Media Server \xC3\xA4.log", "setup"},
      {"Update History.jsonl", R"({"time":"2026-11-21","status":30004,"path":"C:\\)"
                               "\xC3\xA4\"}\n{\"torn"},
      {"Update History.1.jsonl", "{\"time\":\"2026-11-20\",\"status\":0}\n"},
      {"Record/Refused Requests.jsonl", "{\"time\":\"2026-11-22\",\"status\":30005}\n"},
      {"Record/Update History.2026-11-21T10.15.00.007Z.jsonl", "{\"time\":\"2026-11-21\",\"status\":0}\n"}};
};

TEST(Tool, AnswersBadInputInOneSentence) {
  const TempDirectory directory;
  const std::string none = directory / "none", file = directory / "file.exe";
  writeFile(file, "x");
  const std::tuple<Arguments, DWORD, const char*> cases[] = {
      {{"install"}, 2, "BUNDLE"},
      {{"explain", "five"}, 2, "five"},
      {{"check", none}, 4, "no such file"},
      {{"install", none}, 4, "no such file"},
      {{"verify", directory.path()}, 4, "folder"},
      {{"set-app-data", none}, 4, "no such folder"},
      {{"set-app-data", file}, 4, "no folder"},
      {{"history", "--logs", none}, 4, "cannot be read"},
      {{"check", file}, 3, "update service is not"},
      {{"set-app-data", directory.path()}, 3, "update service is not"}};
  for (const auto& [arguments, exitCode, part] : cases) expectSentence(arguments, exitCode, part);
}

TEST(Tool, ShowsTheRecordThatCountsAndNoneThatOthersMayHaveWritten) {
  const std::string path = recordFolderPath();
  EXPECT_TRUE(json({"history"}, 0)["requests"].empty());
  {
    RecordFolder folder(path);
    InstallRecord record;
    for (const char* const time : {"1", "2", "3"}) {
      record.time = time;
      record.exitCode = record.time == "2" ? std::optional<std::uint32_t>(1603) : std::nullopt;
      ASSERT_TRUE(folder.append(record));
    }
  }
  const Json history = json({"history"}, 0);
  std::string times;
  for (const Json& request : history["requests"]) times += request["time"].get<std::string>();
  EXPECT_EQ(times, "123") << "of two files";
  EXPECT_EQ(json({"status"}, 3)["lastOutcome"]["time"], "3");
  boost::filesystem::remove_all(FileUtils::toPath(path));
  writeFile(path, "no folder");
  expectSentence({"history"}, 4, "users may have written to it");
  boost::filesystem::remove_all(FileUtils::toPath(path));
}

TEST(Tool, KnowsOfNoUpdateOnlyWhereNoneCanBe) {
  const TempDirectory directory;
  const std::string path = directory / "Record", planted = directory / "planted";
  const Result<tool::ServiceFacts> running = tool::ServiceFacts{"", true, GetCurrentProcessId(), 0, "", ""};
  /// The path that is shown, "none", or the error's code.
  const auto shown = [](const std::string& folder, const Result<tool::ServiceFacts>& service) {
    const auto found = tool::installUnderWay(folder, service);
    return !found ? std::to_string(found.error().code()) : *found ? (*found)->path : "none";
  };
  EXPECT_EQ(shown(path, running), "none") << "no folder";
  RecordFolder folder(path);
  ASSERT_TRUE(folder.prepare());
  EXPECT_EQ(shown(path, running), "none") << "no file";
  InstallRecord record;
  record.path = "C:\\a.exe";
  const auto announced = folder.announce(record);
  EXPECT_EQ(shown(path, running), "C:\\a.exe");
  writeFile(planted, "");
  const std::string untrusted = std::to_string(kFolderNotTrusted);
  for (const auto& [service, outcome] : {std::pair{running, untrusted},
                                         {failure(5), untrusted},
                                         {failure(1060), "none"},
                                         {tool::ServiceFacts{}, "none"}})
    EXPECT_EQ(shown(planted, service), outcome);
  EXPECT_EQ(shown("", running), "123") << "nobody knows where the folder is";
}

TEST(Tool, PrefersTheCollectedRecordToTheCopyBesideTheLog) {
  const Logs logs;
  const Arguments history = {"history", "--logs", logs.path()};
  EXPECT_EQ(json(history, 0)["requests"].size(), 2U);
  EXPECT_EQ(json({"status", "--logs", logs.path()}, 3)["lastOutcome"]["status"], 30005);
  boost::filesystem::remove_all(FileUtils::toPath(logs / "Record"));
  const Json copy = json(history, 0);
  EXPECT_EQ(Json({copy["requests"][0]["time"], copy["requests"][1]["path"], copy["skippedLines"]}),
            Json({"2026-11-20", "C:\\\xC3\xA4", 1}));
  boost::filesystem::remove(FileUtils::toPath(logs / "Update History.jsonl"));
  EXPECT_EQ(json(history, 0)["requests"].size(), 1U) << "just moved away";
}

TEST(Tool, CollectsTheServicesLogsButNothingThroughAPlantedLink) {
  const Logs logs;
  const TempDirectory target;
  writeFile(target / "secret", "secret");
  boost::filesystem::create_hard_link(FileUtils::toPath(target / "secret"),
                                      FileUtils::toPath(logs / "Zarn Update Service.2.log"));
  for (const char* name : {"a.ZIP", "folder"}) {
    const Json collected = json({"collect-logs", target / name, "--logs", logs.path()}, 4);
    ASSERT_EQ(collected["missing"].size(), 1U);
    EXPECT_EQ(collected["missing"][0]["name"], "Zarn Update Service.2.log");
    EXPECT_EQ(collected["files"].size(), logs.service.size());
    Files files = name[0] == 'a' ? filesInZip(target / name) : filesIn(target / name);
    EXPECT_EQ(Json::parse(files["status.json"])["lastOutcome"]["status"], 30005);
    files.erase("status.json");
    EXPECT_EQ(files, logs.service) << name;
  }
}

TEST(Tool, OverwritesNothingAndLeavesNothingHalfDone) {
  const Logs logs;
  const TempDirectory target;
  writeFile(target / "a.zip", "mine");
  boost::filesystem::create_directories(FileUtils::toPath(target / "folder"));
  writeFile(target / "folder\\b", "mine");
  const Files before = filesIn(target.path());
  for (const std::string& place : {target / "a.zip", target / "folder"})
    expectSentence({"collect-logs", place, "--logs", logs.path()}, 4, "already");
  for (const std::string& place :
       {std::string("Z:\\proc\\a.zip"), target / "none\\a.zip", target / "none\\a"})
    expectSentence({"collect-logs", place, "--logs", logs.path()}, 4, "could not be written");
  EXPECT_EQ(filesIn(target.path()), before);
}

TEST(Tool, PurgesWhatTheServiceWroteAndNothingElse) {
  const TempDirectory data;
  const std::string logs = data / R"(Zarn Media Server\Logs)", record = recordFolderPath();
  ASSERT_TRUE(FileUtils::createDirectories(logs + "\\Installer Logs") && RecordFolder(record).prepare());
  for (const char* name : {"Zarn Update Service.log", "Zarn Update Service.1.log", "Update History.jsonl",
                           "Startup Crash.log", "Installer Logs\\dd_vcredist.log", "Zarn Media Server.log"})
    writeFile(FileUtils::join(logs, name), "x");
  for (const char* name : {"Update History.jsonl", "Update History.2026-11-21T10.15.00.007Z.jsonl",
                           "Refused Requests.1.jsonl", "Installing.json", "mine"})
    writeFile(FileUtils::join(record, name), "x");
  writeFile(data / "secret", "secret");
  boost::filesystem::create_hard_link(FileUtils::toPath(data / "secret"),
                                      FileUtils::toPath(logs + "\\Zarn Update Service.2.log"));
  const std::wstring text = StringUtils::utf8to16(data.path());
  const auto key = os::createRegistryKey(HKEY_CURRENT_USER, names::kPreferencesKey.wide, KEY_SET_VALUE);
  ASSERT_TRUE(os::writeRegistryText(key->get(), L"LocalAppDataPath", text));
  {
    const FileHandle held(CreateFileW(FileUtils::toPath(logs + "\\Startup Crash.log").c_str(), GENERIC_READ,
                                      FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    const Json purged = json({"purge-logs"}, 4);
    ASSERT_EQ(purged["left"].size(), 1U);
    EXPECT_THAT(purged["error"].get<std::string>(), HasSubstr("Startup Crash.log could not be deleted: "));
    EXPECT_GE(purged["files"].size(), 9U) << "the others all the same";
  }
  json({"purge-logs"}, 0);
  EXPECT_EQ(filesIn(data.path()),
            (Files{{"secret", "secret"}, {"Zarn Media Server/Logs/Zarn Media Server.log", "x"}}));
  EXPECT_EQ(filesIn(record), (Files{{"mine", "x"}}));
  EXPECT_FALSE(FileUtils::exists(logs + "\\Installer Logs"));
  for (const std::string& file : {logs + "\\Zarn Media Server.log", record + "\\mine"})
    FileUtils::deleteFile(file);
  json({"purge-logs"}, 0);
  EXPECT_FALSE(FileUtils::exists(data / "Zarn Media Server") || FileUtils::exists(record));
  ASSERT_TRUE(FileUtils::createDirectories(logs));
  writeFile(record, "no folder");
  json({"purge-logs"}, 0);
  EXPECT_EQ(readFile(record), "no folder") << "not the service's";
  FileUtils::deleteFile(record);
  RegDeleteKeyValueW(HKEY_CURRENT_USER, names::kPreferencesKey.wide, L"LocalAppDataPath");
}

TEST(Tool, PassesOverPathsThatTheServiceDoesNotUse) {
  const TempDirectory data;
  const std::string logs = data / R"(Zarn Media Server\Logs)";
  ASSERT_TRUE(FileUtils::createDirectories(logs));
  writeFile(FileUtils::join(logs, "Zarn Update Service.log"), "newest");
  const std::string shared = R"(\\localhost\c$)" + data.path().substr(2);
  const std::tuple<DWORD, std::string, bool> values[] = {{REG_SZ, data.path(), true},
                                                         {REG_EXPAND_SZ, data.path(), false},
                                                         {REG_SZ, shared, false},
                                                         {REG_SZ, "relative", false}};
  for (const auto& [type, path, isUsed] : values) {
    const std::wstring text = StringUtils::utf8to16(path);
    const auto key = os::createRegistryKey(HKEY_CURRENT_USER, names::kPreferencesKey.wide, KEY_SET_VALUE);
    ASSERT_TRUE(os::writeRegistryValue(key->get(), L"LocalAppDataPath", type, text.c_str(), 2 * text.size()));
    const std::string folder = json({"status"}, 3)["logFolder"];
    EXPECT_EQ(folder.starts_with(path), isUsed) << path << ": " << folder;
  }
  RegDeleteKeyValueW(HKEY_CURRENT_USER, names::kPreferencesKey.wide, L"LocalAppDataPath");
}

TEST(Tool, ShowsAndUsesThePolicyBeforeTheEnvironment) {
  const wchar_t* const variable = names::kAccountServiceHostVariable.wide;
  const TempDirectory directory;
  writeFile(directory / "a.exe", "x");
  SetEnvironmentVariableW(variable, L"environment.example");
  const auto key = os::createRegistryKey(HKEY_LOCAL_MACHINE, names::kPolicyKey.wide, KEY_SET_VALUE);
  for (const auto& [type, text, host, shown] :
       {std::tuple{REG_SZ, L"policy.example", "policy.example", Json("policy.example")},
        {REG_EXPAND_SZ, L"policy.example", "(unusable policy)", Json()}}) {
    ASSERT_TRUE(os::writeRegistryValue(key->get(), names::kAccountServiceHostValue.wide,
                                       static_cast<DWORD>(type), text, 2 * std::wcslen(text)));
    EXPECT_EQ(json({"verify", directory / "a.exe"}, 1)["profile"]["host"], host);
    const Json setting = json({"status"}, 3)["settings"][0];
    EXPECT_EQ(Json({setting["name"], setting["value"], setting["source"]}),
              Json({"AccountServiceHost", shown, "policy"}));
  }
  ASSERT_TRUE(os::writeRegistryText(key->get(), names::kSyslogCollectorValue.wide, L"h:1"));
  const Json checks = json({"doctor"}, 1)["checks"];
  EXPECT_EQ(Json({checks[0]["ok"], checks[2]["ok"]}), Json({false, true}));
  EXPECT_THAT(checks[0]["advice"].get<std::string>(), HasSubstr("the policy value AccountServiceHost"));
  EXPECT_THAT(checks[2]["advice"].get<std::string>(), HasSubstr("the policy value SyslogMinutes"));
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, names::kPolicyKey.wide);
  EXPECT_EQ(json({"verify", directory / "a.exe"}, 1)["profile"]["host"], "environment.example");
  SetEnvironmentVariableW(variable, nullptr);
}

TEST(ToolAndService, AServiceThatDiesInTheCallLeavesTheOutcomeUnknown) {
  const TempDirectory directory;
  writeFile(directory / "a.exe", "x");
  SetEnvironmentVariableW(L"ZARN_HELPER", L"serve");
  auto helper = std::async(std::launch::async, [] { return runProgram(ZARN_DYING_SERVICE, {}); });
  ProgramRun result{3, "", ""};
  for (int tries = 0; tries < 100 && result.exitCode == 3; ++tries)
    result = run({"install", directory / "a.exe"});  // until it listens
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
    return 30002;
  }
  static long install(handle_t, const wchar_t* given, long* exitCode) {
    *exitCode = 1603;
    return checkBundle(nullptr, given);
  }
  static inline RPC_STATUS fault = 0;  // raised instead of an answer
  static inline std::string path;      // of the last call
};

TEST(ToolAndService, AnswersComeThroughWhole) {
  FakeService service;
  const TempDirectory directory;
  const std::string bundle = directory / "b\xC3\xA4 c.exe";
  writeFile(bundle, "x");
  for (const char* command : {"install", "check"}) {
    const Json answer = json({command, bundle}, 1);
    EXPECT_EQ(Json({answer["status"], answer["bundle"], answer.value("installerExitCode", 1603)}),
              Json({30002, bundle, 1603}));
    EXPECT_EQ(std::exchange(service.path, ""), bundle);
  }
  const ProgramRun refused = run({"install", bundle});
  EXPECT_THAT(refused.output, AllOf(HasSubstr("b\xC3\xA4 c.exe"), HasSubstr("Next:")));
  EXPECT_EQ(refused.error, "") << "an answer is no error, and nobody watches";
  EXPECT_EQ(run({"set-app-data", directory.path()}).exitCode, 0U);
  EXPECT_EQ(service.path, directory.path());
  for (const auto& [fault, why] : {std::pair{5L, "another program stands in its place"},
                                   {1825L, "another program stands in its place"},  // RPC_S_SEC_PKG_ERROR
                                   {0x60FFEE01L, "RPC status 1627385345"}}) {
    service.fault = fault;
    expectSentence({"check", bundle}, 3, why);
  }
  const auto cutShort = client::UpdateClient().install(std::wstring(L"a\0b", 3));
  EXPECT_EQ(cutShort.error().failure, client::CallFailure::InvalidPath);
}

}  // namespace
}  // namespace zarn::testing
