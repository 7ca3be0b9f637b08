// The command-line tool beside the service: what it works out by itself must be
// what the service decides.
#include <functional>
#include <map>
#include <nlohmann/json.hpp>

#include "client/update_client.h"
#include "e2e/service_under_test.h"
#include "support/run_program.h"
#include "util/product_names.h"

namespace zarn::testing {
namespace {

using Json = nlohmann::json;

constexpr char kTool[] = R"(C:\Program Files\Zarn Update Service\zarn-update.exe)";

Json ask(const std::string& command, const std::string& target) {
  Lines arguments = {command, target, "--json"};
  std::erase(arguments, "");
  const ProgramRun run = runProgram(kTool, arguments);
  Json answer = Json::parse(run.output, nullptr, false);
  EXPECT_TRUE(answer.is_object() && answer.value("exitCode", -1) == static_cast<int>(run.exitCode))
      << command << " " << target << ": " << run.output << run.error;
  return answer.is_object() ? answer : Json::object();
}

/// What the service wrote of the newest request.
Json lastRecord() {
  const Json answer = Json::parse(runProgram(kTool, {"history", "--last", "1", "--json"}).output);
  return answer["requests"].at(0);
}

Json recorded(const Json& record, const Json& check) {
  for (const Json& one : record["checks"])
    if (one["name"] == check) return one["verdict"];
  return {};
}

/// A check of doctor's by its name; null when it was not made.
Json checkNamed(const Json& answer, const char* name) {
  for (const Json& one : answer["checks"])
    if (one["name"] == name) return one;
  return {};
}

using CommandLineTool = OnStage;

TEST_F(CommandLineTool, VerifiesAsTheServiceDecidesAndNamesTheSigner) {
  std::map<std::string, Json> verifications, records;
  const std::pair<const char*, std::vector<const char*>> bundles[] = {
      {"", {"approved.exe"}},
      {"integrity", {"unsigned.exe", "changed.exe", "untrusted-root.exe", "expired.exe"}},
      {"identity", {"other-publisher.exe", "decoy.exe"}},
      {"extension", {"CAPITALS.EXE", "no-extension"}}};
  for (const auto& [decider, named] : bundles)
    for (const char* name : named) {
      const Json& verified = verifications[name] = ask("verify", bundle(name));
      EXPECT_TRUE(ServiceUnderTest::installerRuns().empty()) << name << " was run by verify";
      const int decided = ask("install", bundle(name)).value("status", -1);
      // The stand-in installer asks for a reboot; verify says only that it would be run.
      EXPECT_EQ(verified.value("status", -2), decided == 30001 ? 0 : decided) << name;
      EXPECT_EQ(ServiceUnderTest::installerRuns().size(), decided == 30001 ? 1U : 0U) << name;
      ServiceUnderTest::forgetInstallerRuns();
      const Json& record = records[name] = lastRecord();
      EXPECT_EQ(record["path"], bundle(name));
      EXPECT_EQ(record["status"], decided) << name;
      std::string decidedBy;
      for (const Json& step : verified["steps"]) {
        EXPECT_EQ(recorded(record, step["name"]), step["verdict"]) << name << ": " << step["name"];
        if (step["verdict"] == "refused") decidedBy = step["name"];
      }
      EXPECT_EQ(decidedBy, decider) << name;
    }
  const Json& approved = verifications["approved.exe"];
  EXPECT_EQ(approved["signer"]["digest"], stageSetting("approved_digest"));
  EXPECT_EQ(approved["signer"]["subject"], "CN=Zarn, Inc., O=Zarn, Inc., L=Los Gatos, S=California, C=US");
  EXPECT_EQ(approved["profile"]["holdsSigner"], true);
  const Json& record = records["approved.exe"];
  const Json wanted = {{"sha256", stageSetting("approved_sha256")},
                       {"signerDigest", approved["signer"]["digest"]},
                       {"signerSubject", approved["signer"]["subject"]},
                       {"exitCode", 1641},
                       {"product", "Zarn Media Server"},
                       {"productVersion", "7.8.9"}};
  for (const auto& [key, value] : wanted.items()) EXPECT_EQ(record[key], value) << key;
  EXPECT_EQ(record["caller"]["image"], kTool);
  EXPECT_EQ(record["caller"]["sid"].get<std::string>().rfind("S-1-5-", 0), 0U);
  const Json& decoy = verifications["decoy.exe"];
  EXPECT_EQ(decoy["signer"]["digest"], stageSetting("decoy_digest"));
  EXPECT_EQ(decoy["profile"]["holdsSigner"], false);
}

TEST_F(CommandLineTool, AnEmptyProfileRefusesWhileNoneOrADamagedListOfAuthoritiesFails) {
  for (const auto& [profile, verdict] :
       {std::pair{"no profile", "failed"}, {R"({"certs": []})", "refused"}}) {
    setProfile(profile);
    const Json verified = ask("verify", bundle("approved.exe"));
    EXPECT_EQ(verified["status"], 30005);
    EXPECT_EQ(verified["steps"][4]["verdict"], verdict);
    const Json installed = ask("install", bundle("approved.exe")),
               checked = ask("check", bundle("approved.exe"));
    EXPECT_EQ(recorded(lastRecord(), "identity"), verdict);
    EXPECT_EQ(installed["decidedBy"]["detail"], verified["steps"][4]["detail"]);
    EXPECT_EQ(Json({installed["meaning"], checked["meaning"]}),
              Json({verified["meaning"], verified["meaning"]}));
    EXPECT_EQ(Json({installed["decidedBy"]["source"], checked["decidedBy"]["source"]}),
              Json({"record", "here"}));
  }
  approveOnly(stageSetting("approved_digest"));
  const std::string chosen = R"(C:\Program Files\Zarn Update Service\Resources\cacert-chosen.pem)";
  writeFile(chosen, "-----BEGIN CERTIFICATE-----\ndamaged\n-----END CERTIFICATE-----\n");
  for (const char* command : {"verify", "install"})
    EXPECT_EQ(ask(command, bundle("approved.exe"))["status"], 30005) << command;
  const auto authoritiesAreWell = [] { return checkNamed(ask("doctor", "--offline"), "authorities")["ok"]; };
  EXPECT_EQ(authoritiesAreWell(), false);
  EXPECT_EQ(ask("status", "--check")["exitCode"], 1);
  DeleteFileA(chosen.c_str());
  EXPECT_EQ(ask("verify", bundle("approved.exe"))["status"], 0);
  const Json checked = ask("doctor", "--offline");
  EXPECT_EQ(Json({checked["exitCode"], checked["checks"][0]["ok"]}), Json({0, true})) << checked;
  constexpr wchar_t key[] = LR"(Software\Zarn, Inc.\Zarn Update Service)";
  for (const auto& [choice, ok] : {std::pair{L"C:\\list.pem", false}, {L"default", true}, {L"", true}}) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"CaBundle", REG_SZ, choice,
                    static_cast<DWORD>(2 * (wcslen(choice) + 1)));
    EXPECT_EQ(authoritiesAreWell(), ok);
  }
  RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, L"CaBundle");
}

TEST_F(CommandLineTool, WaitsForTheInstallThatRunsAndTellsItsOutcome) {
  ServiceUnderTest::planInstaller("sleep_ms=8000\nexit=1641\n");
  std::thread installing([] { ask("install", bundle("approved.exe")); });
  EXPECT_TRUE(waitUntil([] { return !ServiceUnderTest::installerRuns().empty(); }));
  EXPECT_EQ(ask("purge-logs", "--json")["exitCode"], 1) << "the service runs";
  const Json busy = ask("wait", "0");
  EXPECT_EQ(Json({busy["exitCode"], busy["installing"]["path"], busy["installing"]["processId"]}),
            Json({1, bundle("approved.exe"), ask("status", "--json")["processId"]}));
  EXPECT_EQ(ask("status", "--json")["installing"], busy["installing"]);
  const client::UpdateClient service;
  const client::UnderWay shown = service.underWay();
  EXPECT_EQ(
      Json({shown.installing == true, StringUtils::utf16to8(shown.path), StringUtils::utf16to8(shown.since)}),
      Json({true, busy["installing"]["path"], busy["installing"]["since"]}));
  EXPECT_EQ(service.state(), client::ServiceState::Running);
  const Json free = ask("wait", "30");
  EXPECT_EQ(service.underWay().installing, std::optional(false));
  installing.join();
  EXPECT_EQ(Json({free["exitCode"], free["installing"]}), Json({0, nullptr}));
  EXPECT_EQ(lastRecord()["time"], busy["installing"]["since"]) << "recorded before it is free";
  const Json status = ask("status", "--json");
  EXPECT_NE(status["version"], "");
  EXPECT_EQ(Json({status["installing"], status["versionRunning"], status["startType"]}),
            Json({nullptr, status["version"], "demand"}));
  EXPECT_EQ(status["authorities"]["certificates"], 1);
  const Json& last = status["lastOutcome"];
  EXPECT_EQ(Json({status["state"], status["logFolder"], last["status"], last["exitCode"], last["path"]}),
            Json({"running", ServiceUnderTest::logDirectory(), 30001, 1641, bundle("approved.exe")}));
}

TEST_F(CommandLineTool, DoctorFindsWhatIsWrongAndStatusTellsItToMonitoring) {
  const auto isWrong = [](const Json& answer) {
    std::string names;
    for (const Json& one : answer["checks"])
      if (one["ok"] != true) names += one["name"].get<std::string>() + ";";
    return names;
  };
  const Json well = ask("doctor", "");
  EXPECT_EQ(isWrong(well), "") << well;
  EXPECT_EQ(well["checks"].size(), 15U);
  EXPECT_THAT(checkNamed(well, "approved certificates")["found"].get<std::string>(),
              HasSubstr(": 1 approved, "));
  EXPECT_THAT(checkNamed(well, "clock")["found"].get<std::string>(), HasSubstr(" s "));
  EXPECT_EQ(checkNamed(well, "revocation")["advice"] == "", false) << "the service's program is not signed";
  setProfile("no profile");
  EXPECT_EQ(isWrong(ask("doctor", "")), "approved certificates;");
  {
    const MachineSetting policy{names::kPolicyKey.wide};
    policy.text(L"AccountServiceHost", L"localhost:1");
    EXPECT_EQ(isWrong(ask("doctor", "")), "approved certificates;");
    policy.text(L"AccountServiceHost", L"nobody.invalid");
    EXPECT_EQ(isWrong(ask("doctor", "")), "name resolution;approved certificates;");
  }
  const auto checked = [] {
    const Json answer = ask("status", "--check");
    return Json({answer["exitCode"], answer["problems"].size()});
  };
  EXPECT_EQ(checked(), Json({0, 0}));
  approveOnly(stageSetting("approved_digest"));
  ServiceUnderTest::planInstaller("exit=1603\n");
  ask("install", bundle("approved.exe"));
  ask("install", bundle("unsigned.exe"));
  EXPECT_EQ(checked(), Json({1, 1}));
  ServiceUnderTest::planInstaller("exit=1641\n");
  ask("install", bundle("approved.exe"));
  ask("install", bundle("unsigned.exe"));
  EXPECT_EQ(checked(), Json({0, 0})) << "a refusal is no failed update";
  const ProgramRun line = runProgram(kTool, {"status", "--check"});
  EXPECT_TRUE(line.output.starts_with("OK: ") && countOf("\n", line.output) == 1) << line.output;
  service_.stop();
  EXPECT_EQ(checked(), Json({3, 1}));
  EXPECT_EQ(isWrong(ask("doctor", "")), "service;endpoint;");
  EXPECT_EQ(isWrong(ask("doctor", "--offline")), "") << "as before the package starts it";
}

// Here and not among the tests of the sdk, where somebody restarts it as Windows would.
TEST_F(CommandLineTool, KnowsAServiceThatDoesNotComeBack) {
  ServiceUnderTest::planInstaller("exit=0\n");
  client::CallOptions options;
  options.awaitRestart = true;
  options.restartLimit = 1500ms;
  const auto answer =
      client::UpdateClient().install(StringUtils::utf8to16(bundle("approved.exe")), options).value();
  EXPECT_EQ(std::tuple(answer.status, answer.restart), std::tuple(0, client::Restart::NotBack));
}

TEST_F(CommandLineTool, ThePolicyIsStrongerThanTheEnvironmentForServiceAndToolAlike) {
  using Set = std::function<void(const MachineSetting&)>;
  const auto text = [](const wchar_t* name, const wchar_t* value) -> Set {
    return [=](const MachineSetting& policy) { policy.text(name, value); };
  };
  const auto number = [](const wchar_t* name) -> Set {
    return [=](const MachineSetting& policy) { policy.number(name, 7); };
  };
  const auto unused = L"127.0.0.1:1";
  const struct {
    std::vector<Set> values;
    int status;
    const char* line;
  } cases[] = {{{text(L"AccountServiceHost", unused)}, 30005, "INFO - Set by policy: AccountServiceHost"},
               {{text(L"AccountServiceHost", L"a b")},
                30005,
                "WARN - The policy value AccountServiceHost cannot be used: "},
               {{number(L"AccountServiceHost")}, 30005, "invalid account service host: (unusable policy)"},
               {{text(L"Proxy", unused)}, 30005, "INFO - Set by policy: Proxy"},
               {{number(L"Proxy")}, 30005, "Unsupported proxy scheme for 'unusable-policy://none'"},
               {{text(L"Proxy", unused), text(L"ProxyBypass", L"*")}, 0, "Set by policy: Proxy, ProxyBypass"},
               {{text(L"SyslogCollector", L"h:1")}, 0, "SYSLOG_MINUTES is '' and not a positive number"},
               {{text(L"LogLevel", L"info")}, 0, "INFO - Set by policy: LogLevel"}};
  for (const auto& [values, status, line] : cases) {
    const MachineSetting policy{names::kPolicyKey.wide};
    for (const Set& set : values) set(policy);
    service_.stop();
    service_.start("policy");
    EXPECT_EQ(ask("verify", bundle("approved.exe"))["status"], status) << line;
    EXPECT_EQ(ask("check", bundle("approved.exe"))["status"], status) << line;
    EXPECT_TRUE(ServiceUnderTest::waitForLogLine(line)) << line;
    EXPECT_EQ(ask("status", "--json")["settingsChangedSinceStart"], false);
  }
  EXPECT_EQ(ask("status", "--json")["settingsChangedSinceStart"], true) << "the policy is gone";
  EXPECT_EQ(countOf(" DEBUG - ", ServiceUnderTest::log()), 0U) << "in spite of the preferences";
  service_.stop();
}

}  // namespace
}  // namespace zarn::testing
