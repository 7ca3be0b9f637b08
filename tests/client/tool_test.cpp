// The built program, run as people and scripts run it. Nobody serves the endpoint but in the last one.
#include <zip.h>

#include <map>

#include "client/tool/machine/record.h"
#include "client/tool/report/answer.h"
#include "client/update_client.h"
#include "support/run_program.h"
#include "support/test.h"
#include "update/interface/update_interface.h"
#include "update/record_folder.h"
#include "util/product_names.h"
#include "util/product_version.h"

namespace zarn::testing {
namespace {

using tool::Json;

const auto run = [](const Lines& arguments) { return runProgram(ZARN_TOOL, arguments); };

/// The object that the command prints with --json, once its exit code is right.
Json json(Lines arguments, int exitCode) {
  arguments.emplace_back("--json");
  const ProgramRun result = run(arguments);
  const Json object = Json::parse(result.output, nullptr, false);
  EXPECT_TRUE(object.is_object() && object.value("command", "") == arguments[0] &&
              object.value("exitCode", -1) == exitCode && result.exitCode == static_cast<DWORD>(exitCode) &&
              object.size() == 4 + tool::jsonKeysOf(arguments[0]).size())
      << result.exitCode << result.output << result.error;
  EXPECT_TRUE(std::ranges::all_of(result.output, [](char c) { return c > 0; })) << "ASCII, as nobody watches";
  return object.is_object() ? object : Json::object();
}

/// The command fails with this code, says so in one sentence, and prints nothing else.
void expectSentence(const Lines& arguments, DWORD exitCode, const std::string& part) {
  const ProgramRun result = run(arguments);
  EXPECT_EQ(result.exitCode, exitCode) << result.error;
  EXPECT_THAT(result.output + result.error, AllOf(HasSubstr(part), MatchesRegex("zarn-update: .+\\.\n")));
}

/// Names, with '/' between folders, and contents.
using Files = std::map<std::string, std::string>;

Files filesIn(const std::string& folder) {
  Files files;
  for (const auto& entry : fs::recursive_directory_iterator(toPath(folder)))
    if (is_regular_file(entry))
      files[toUtf8(entry.path().lexically_relative(toPath(folder)).generic_path())] =
          readFile(toUtf8(entry.path()));
  return files;
}

Files filesInZip(const std::string& path) {
  Files files;
  zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, nullptr);
  for (zip_uint64_t i = 0; const char* name = archive ? zip_get_name(archive, i, 0) : nullptr; ++i) {
    zip_file_t* const file = zip_fopen_index(archive, i, 0);
    std::string content(1'000'000, '\0');
    content.resize(static_cast<std::size_t>(zip_fread(file, content.data(), content.size())));
    files[name] = std::move(content);
    zip_fclose(file);
  }
  zip_discard(archive);
  return files;
}

void setRegistry(HKEY root, const wchar_t* key, const wchar_t* name, const std::string& text, DWORD type) {
  const std::wstring wide = StringUtils::utf8to16(text);
  RegSetKeyValueW(root, key, name, type, wide.c_str(), static_cast<DWORD>(2 * wide.size()));
}

/// A Logs folder with what a service leaves there.
struct Logs : TempDirectory {
  Logs() {
    for (const char* name : {"Zarn Media Server.log", "Installer Logs\\other.log", "Record\\other"}) {
      fs::create_directories(toPath(*this / name).parent_path());
      writeFile(*this / name, "not the service's");
    }
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

TEST(Tool, AnswersWhatCannotBeDoneInOneSentenceAndOverwritesNothing) {
  const Logs logs;
  const TempDirectory directory;
  const std::string none = directory / "none", file = directory / "file.exe", zip = directory / "a.zip",
                    folder = directory / "folder", record = recordFolderPath();
  EXPECT_TRUE(json({"history"}, 0)["requests"].empty());
  fs::create_directory(toPath(folder));
  for (const std::string& path : {file, zip, folder + "\\b", record}) writeFile(path, "mine");
  const Files before = filesIn(directory.path());
  const auto collect = [&](const std::string& target) {
    return Lines{"collect-logs", target, "--logs", logs.path()};
  };
  const std::tuple<Lines, DWORD, const char*> cases[] = {
      {{"install"}, 2, "BUNDLE"},
      {{"explain", "five"}, 2, "five"},
      {{"check", none}, 4, "no such file"},
      {{"install", none}, 4, "no such file"},
      {{"verify", directory.path()}, 4, "folder"},
      {{"set-app-data", none}, 4, "no such folder"},
      {{"set-app-data", file}, 4, "no folder"},
      {{"history"}, 4, "users may have written to it"},
      {{"history", "--logs", none}, 4, "cannot be read"},
      {{"collect-logs", none, "--logs", none}, 4, "cannot be read"},
      {collect(zip), 4, "already"},
      {collect(folder), 4, "already"},
      {collect(none + "\\a"), 4, "could not be written"},
      {collect(none + "\\a.zip"), 4, "could not be written"},
      {collect("Z:\\proc\\a.zip"), 4, "could not be written"},
      {{"check", file}, 3, "update service is not"},
      {{"set-app-data", directory.path()}, 3, "update service is not"}};
  for (const auto& [arguments, exitCode, part] : cases) expectSentence(arguments, exitCode, part);
  EXPECT_EQ(filesIn(directory.path()), before);
  FileUtils::deleteFile(record);
}

TEST(Tool, EndsQuietlyWhenNobodyReadsOn) {
  SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
  HANDLE readEnd{}, writeEnd{};
  ASSERT_TRUE(CreatePipe(&readEnd, &writeEnd, &inherited, 0));
  CloseHandle(readEnd);
  const KernelHandle owner(writeEnd);
  for (const auto& [command, exitCode] : {std::pair{"help", 0U}, {"status", 3U}}) {
    const ProgramRun ended = runProgram(ZARN_TOOL, {command}, writeEnd);
    EXPECT_EQ(ended.exitCode, exitCode) << command;
    EXPECT_EQ(ended.error, "") << command;
  }
}

TEST(Tool, AnswersInformationAndMistakesToScriptsToo) {
  EXPECT_EQ(json({"version"}, 0)["version"], kVersion);
  EXPECT_THAT(json({"help", "wait"}, 0)["text"].get<std::string>(), HasSubstr("wait [SECONDS]"));
  EXPECT_EQ(json({"install", "a", "b"}, 2)["bundle"], nullptr);
  const ProgramRun bare = run({});
  EXPECT_EQ(bare.exitCode, 2U);
  EXPECT_THAT(bare.output, HasSubstr("Usage: zarn-update COMMAND"));
  EXPECT_EQ(bare.error, "");
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
  EXPECT_EQ(shown("", running), "123") << "nobody knows where the folder is";
  const std::string untrusted = std::to_string(kFolderNotTrusted);
  EXPECT_EQ(shown(planted, running) + shown(planted, failure(5)), untrusted + untrusted);
  EXPECT_EQ(shown(planted, failure(1060)) + shown(planted, tool::ServiceFacts{}), "nonenone");
}

TEST(Tool, PrefersTheCollectedRecordToTheCopyBesideTheLog) {
  const Logs logs;
  const Lines history = {"history", "--logs", logs.path()};
  EXPECT_EQ(json(history, 0)["requests"].size(), 2U);
  EXPECT_EQ(json({"status", "--logs", logs.path()}, 3)["lastOutcome"]["status"], 30005);
  fs::remove_all(toPath(logs / "Record"));
  const Json copy = json(history, 0);
  EXPECT_EQ(Json({copy["requests"][0]["time"], copy["requests"][1]["path"], copy["skippedLines"]}),
            Json({"2026-11-20", "C:\\\xC3\xA4", 1}));
  fs::remove(toPath(logs / "Update History.jsonl"));
  EXPECT_EQ(json(history, 0)["requests"].size(), 1U) << "just moved away";
}

TEST(Tool, CollectsTheServicesLogsButNothingThroughAPlantedLink) {
  const Logs logs;
  const TempDirectory target;
  writeFile(target / "secret", "secret");
  fs::create_hard_link(toPath(target / "secret"), toPath(logs / "Zarn Update Service.2.log"));
  for (const char* name : {"a.ZIP", "folder"}) {
    const Json collected = json({"collect-logs", target / name, "--logs", logs.path()}, 4);
    ASSERT_EQ(collected["missing"].size(), 1U);
    EXPECT_EQ(collected["missing"][0]["name"], "Zarn Update Service.2.log");
    Files files = name[0] == 'a' ? filesInZip(target / name) : filesIn(target / name);
    EXPECT_EQ(collected["files"].size(), files.size());
    EXPECT_EQ(Json::parse(files["status.json"])["lastOutcome"]["status"], 30005);
    EXPECT_THAT(files["doctor.txt"], HasSubstr("\nservice "));
    for (const char* made : {"status", "doctor", "system"})
      for (const char* form : {".json", ".txt"}) EXPECT_EQ(files.erase(std::string(made) + form), 1U) << made;
    EXPECT_EQ(files, logs.service) << name;
  }
}

TEST(Tool, CollectsWhereLogsWereBeforeAndWhatThePackageWroteWithoutItsSecrets) {
  const TempDirectory data, target;
  const std::string logs = R"(\Zarn Media Server\Logs\)", package = R"(C:\windows\Logs\ZarnUpdateService)";
  const std::string before = FileUtils::applicationDataDirectory(false, false) + logs;
  setRegistry(HKEY_CURRENT_USER, names::kPreferencesKey.wide, L"LocalAppDataPath", data.path(), REG_SZ);
  EXPECT_EQ(json({"collect-logs", target / "none"}, 4)["missing"][0]["name"], "Logs") << "the rest is there";
  EXPECT_EQ(filesIn(target / "none").count("status.txt"), 1U);
  ASSERT_TRUE(FileUtils::createDirectories(data.path() + logs) && FileUtils::createDirectories(before) &&
              FileUtils::createDirectories("C:\\windows\\Logs"));
  for (const std::string& folder : {data.path() + logs, before})
    writeFile(folder + "Zarn Update Service.log", folder);
  std::string utf16 = "\xff\xfe";
  for (const char c :
       "token=" + std::string(20, 's') + " HTTPS://u:p/w@h.example:1/ C:\\a@b 'u:p/w@h' \xE9\r\n")
    utf16 += c, utf16 += '\0';
  writeFile(package + ".log", utf16);
  writeFile(before + "Zarn Update Service.1.log", "1\n'http://u:p/w@h'\n");
  writeFile(target / "secret", "secret");
  fs::create_hard_link(toPath(target / "secret"), toPath(package + "2.LOG"));
  const Json collected = json({"collect-logs", target / "c"}, 4);
  Files files = filesIn(target / "c");
  EXPECT_EQ(files["Package/ZarnUpdateService.log"],
            "token=" + std::string(20, 'x') + " HTTPS://***@h.example:1/ C:\\a@b '***@h' \xC3\xA9\r\n");
  EXPECT_EQ(files["Zarn Update Service.log"], data.path() + logs);
  EXPECT_EQ(files["Earlier Logs/1/Zarn Update Service.log"], before);
  EXPECT_EQ(files["Earlier Logs/1/Zarn Update Service.1.log"], "1\n'http://***@h'\n");
  std::string missing;
  for (const Json& one : collected["missing"]) missing += one["name"].get<std::string>() + " ";
  EXPECT_THAT(missing, StartsWith("Package/ZarnUpdateService2.LOG "))
      << "and, where there is none, the event log";
  RegDeleteKeyValueW(HKEY_CURRENT_USER, names::kPreferencesKey.wide, L"LocalAppDataPath");
  for (const std::string& file : {package + ".log", package + "2.LOG", before + "Zarn Update Service.log",
                                  before + "Zarn Update Service.1.log"})
    FileUtils::deleteFile(file);
}

TEST(Tool, FindsItsOwnRequestAmongThoseOfOthers) {
  const TempDirectory folder;
  const tool::RecordSource source{folder.path(), {}, true};
  const auto find = [&](const char* begin, int status) {
    const auto found = tool::findOwnRequest(source, "C:\\a", begin, Status{status});
    return found.record ? found.record->time : found.problem;
  };
  EXPECT_THAT(find("1", 30005), Not(HasSubstr("such request"))) << "no record";
  std::string lines;
  const unsigned own = GetCurrentProcessId();
  for (const auto& [time, process, path, status] : {std::tuple{"1", own, "C:\\a", 30005},
                                                    {"2", own, "C:\\a", 30005},
                                                    {"3", own, "C:\\b", 30005},
                                                    {"4", own + 1, "C:\\a", 30005},
                                                    {"5", own, "C:\\a", 30002}})
    lines += Json({{"time", time}, {"caller", {{"processId", process}}}, {"path", path}, {"status", status}})
                 .dump() +
             "\n";
  writeFile(folder / "Refused Requests.jsonl", lines);
  EXPECT_EQ(find("1", 30005) + find("5", 30002), "25");
  for (const auto& [begin, status] : {std::pair{"3", 30005}, {"1", 30004}})
    EXPECT_EQ(find(begin, status), "it has no such request");
}

TEST(Tool, PurgesWhatTheServiceWroteWhereItWouldAndNothingElse) {
  const TempDirectory data;
  const std::string logs = data / R"(Zarn Media Server\Logs\)", record = recordFolderPath() + "\\";
  ASSERT_TRUE(FileUtils::createDirectories(logs + "Installer Logs") && RecordFolder(record).prepare());
  for (const char* name : {"Zarn Update Service.log", "Zarn Update Service.1.log", "Update History.jsonl",
                           "Startup Crash.log", "Installer Logs\\dd_vcredist.log", "Zarn Media Server.log"})
    writeFile(logs + name, "x");
  for (const char* name : {"Update History.jsonl", "Update History.2026-11-21T10.15.00.007Z.jsonl",
                           "Refused Requests.1.jsonl", "Installing.json", "mine"})
    writeFile(record + name, "x");
  for (const auto& [type, path, isUsed] : {std::tuple{REG_EXPAND_SZ, data.path(), false},
                                           {REG_SZ, R"(\\localhost\c$)" + data.path().substr(2), false},
                                           {REG_SZ, "relative", false},
                                           {REG_SZ, data.path(), true}}) {
    setRegistry(HKEY_CURRENT_USER, names::kPreferencesKey.wide, L"LocalAppDataPath", path,
                static_cast<DWORD>(type));
    const std::string folder = json({"status"}, 3)["logFolder"];
    EXPECT_EQ(folder.starts_with(path), isUsed) << path << ": " << folder;
  }
  const std::string own = FileUtils::applicationDataDirectory(false, false) + R"(\Zarn Media Server\Logs)";
  EXPECT_EQ(json({"status"}, 3)["earlierLogFolders"], Json::array());
  ASSERT_TRUE(FileUtils::createDirectories(own));
  writeFile(own + "\\Zarn Update Service.1.log", "x");
  EXPECT_EQ(json({"status"}, 3)["earlierLogFolders"], Json({own})) << "before the log was moved";
  writeFile(data / "secret", "secret");
  fs::create_hard_link(toPath(data / "secret"), toPath(logs + "Zarn Update Service.2.log"));
  {
    const std::ifstream held(toPath(logs + "Startup Crash.log").c_str());  // which may not be deleted then
    const Json purged = json({"purge-logs"}, 4);
    ASSERT_EQ(purged["left"].size(), 1U);
    EXPECT_THAT(purged["error"].get<std::string>(), HasSubstr("Startup Crash.log could not be deleted: "));
    EXPECT_GE(purged["files"].size(), 9U) << "the others all the same";
  }
  json({"purge-logs"}, 0);
  EXPECT_EQ(filesIn(data.path()),
            (Files{{"secret", "secret"}, {"Zarn Media Server/Logs/Zarn Media Server.log", "x"}}));
  EXPECT_EQ(filesIn(record), (Files{{"mine", "x"}}));
  EXPECT_FALSE(FileUtils::exists(logs + "Installer Logs"));
  for (const std::string& file : {logs + "Zarn Media Server.log", record + "mine"})
    FileUtils::deleteFile(file);
  json({"purge-logs"}, 0);
  EXPECT_FALSE(FileUtils::exists(data / "Zarn Media Server") || FileUtils::exists(recordFolderPath()));
  ASSERT_TRUE(FileUtils::createDirectories(logs));
  writeFile(recordFolderPath(), "no folder");
  json({"purge-logs"}, 0);
  EXPECT_EQ(readFile(recordFolderPath()), "no folder") << "not the service's";
  FileUtils::deleteFile(recordFolderPath());
  RegDeleteKeyValueW(HKEY_CURRENT_USER, names::kPreferencesKey.wide, L"LocalAppDataPath");
}

TEST(Tool, ShowsThePolicyBeforeTheEnvironment) {
  const TempDirectory directory;
  writeFile(directory / "a.exe", "x");
  setEnvironment(names::kAccountServiceHostVariable.narrow, "u:p@environment.example");
  EXPECT_EQ(json({"verify", directory / "a.exe"}, 1)["profile"]["host"], "***@environment.example");
  const auto policy = [](const wchar_t* name, const char* text, DWORD type) {
    setRegistry(HKEY_LOCAL_MACHINE, names::kPolicyKey.wide, name, text, type);
  };
  for (const auto& [type, shown] : {std::pair{REG_SZ, Json("policy.example")}, {REG_EXPAND_SZ, Json()}}) {
    policy(names::kAccountServiceHostValue.wide, "policy.example", static_cast<DWORD>(type));
    const Json setting = json({"status"}, 3)["settings"][0];
    EXPECT_EQ(Json({setting["value"], setting["source"]}), Json({shown, "policy"}));
  }
  policy(names::kSyslogCollectorValue.wide, "h:1", REG_SZ);
  const Json checks = json({"doctor", "--offline"}, 1)["checks"];
  EXPECT_EQ(Json({checks[0]["ok"], checks[2]["ok"]}), Json({false, true}));
  EXPECT_THAT(checks[0]["advice"].get<std::string>(), HasSubstr("the policy value AccountServiceHost"));
  EXPECT_THAT(checks[2]["advice"].get<std::string>(), HasSubstr("the policy value SyslogMinutes"));
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, names::kPolicyKey.wide);
  setEnvironment(names::kAccountServiceHostVariable.narrow, "");
}

// A service that the test stands in for.
RPC_STATUS fault = 0;  // raised instead of an answer
long judged = 30002;
std::string sent;  // with the last call
void setLocalAppDataPath(handle_t, const wchar_t* path) {
  sent = StringUtils::utf16to8(path);
}
long checkBundle(handle_t, const wchar_t* path) {
  if (fault != 0) RpcRaiseException(fault);
  sent = StringUtils::utf16to8(path);
  return judged;
}
long installBundle(handle_t, const wchar_t* path, long* exitCode) {
  *exitCode = 1603;
  return checkBundle(nullptr, path);
}

TEST(Tool, TellsWhatTheServiceAnsweredAndThatItsDeathLeavesTheOutcomeUnknown) {
  const TempDirectory directory;
  const std::string bundle = directory / "b\xC3\xA4 c.exe";
  writeFile(bundle, "x");
  setEnvironment("ZARN_HELPER", "serve");
  {
    const auto helper = std::async(std::launch::async, [] { return runProgram(ZARN_DYING_SERVICE, {}); });
    ProgramRun result{3, "", ""};
    for (int tries = 0; tries < 100 && result.exitCode == 3; ++tries)
      result = run({"install", bundle});  // until it listens
    EXPECT_EQ(result.exitCode, 5U) << result.error;
    EXPECT_THAT(result.error, HasSubstr("unknown"));
  }
  using namespace update_interface;
  static ServerInterface served({setLocalAppDataPath, checkBundle, installBundle});
  RpcServerUseProtseqEpW(rpcText(kProtocolSequence), 1, rpcText(kEndpoint), nullptr);
  RpcServerRegisterIf(served.handle(), nullptr, nullptr);
  ASSERT_EQ(RpcServerListen(1, 1, TRUE), RPC_S_OK);
  for (const char* command : {"install", "check"}) {
    const Json answer = json({command, bundle}, 1);
    EXPECT_EQ(Json({answer["status"], answer["bundle"], answer.value("installerExitCode", 1603)}),
              Json({30002, bundle, 1603}));
    EXPECT_EQ(std::exchange(sent, ""), bundle);
  }
  const ProgramRun refused = run({"install", bundle});
  EXPECT_THAT(refused.output, AllOf(HasSubstr("b\xC3\xA4 c.exe"), HasSubstr("Next:")));
  EXPECT_EQ(refused.error, "") << "an answer is no error, and nobody watches";
  judged = 30005;
  const Json check = json({"check", bundle}, 1);
  EXPECT_EQ(check["decidedBy"], nullptr) << "worked out here it is another check that refuses the file";
  judged = 30004;
  EXPECT_EQ(json({"check", bundle}, 1)["decidedBy"]["name"], "integrity");
  EXPECT_EQ(run({"set-app-data", directory.path()}).exitCode, 0U);
  EXPECT_EQ(sent, directory.path());
  for (const auto& [raised, why] : {std::pair{5L, "another program stands in its place"},
                                    {1825L, "another program stands in its place"},  // RPC_S_SEC_PKG_ERROR
                                    {0x60FFEE01L, "RPC status 1627385345"}}) {
    fault = raised;
    expectSentence({"check", bundle}, 3, why);
  }
  const auto cutShort = client::UpdateClient().install(std::wstring(L"a\0b", 3));
  EXPECT_EQ(cutShort.error().failure, client::CallFailure::InvalidPath);
  RpcMgmtStopServerListening(nullptr);
  RpcServerUnregisterIf(served.handle(), nullptr, FALSE);
}

}  // namespace
}  // namespace zarn::testing
