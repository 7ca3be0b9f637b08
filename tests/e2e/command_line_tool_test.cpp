// The command-line tool beside the service: what it works out by itself must be
// what the service decides.
#include <map>
#include <nlohmann/json.hpp>

#include "e2e/service_under_test.h"
#include "support/run_program.h"

namespace zarn::testing {
namespace {

using Json = nlohmann::json;

constexpr char kTool[] = R"(C:\Program Files\Zarn Update Service\zarn-update.exe)";

Json ask(const std::string& command, const std::string& target) {
  const ProgramRun run = runProgram(kTool, {command, target, "--json"});
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
    ask("install", bundle("approved.exe"));
    EXPECT_EQ(recorded(lastRecord(), "identity"), verdict);
  }
  approveOnly(stageSetting("approved_digest"));
  const std::string chosen = R"(C:\Program Files\Zarn Update Service\Resources\cacert-chosen.pem)";
  writeFile(chosen, "-----BEGIN CERTIFICATE-----\ndamaged\n-----END CERTIFICATE-----\n");
  for (const char* command : {"verify", "install"})
    EXPECT_EQ(ask(command, bundle("approved.exe"))["status"], 30005) << command;
  DeleteFileA(chosen.c_str());
  EXPECT_EQ(ask("verify", bundle("approved.exe"))["status"], 0);
}

TEST_F(CommandLineTool, WaitsForTheInstallThatRunsAndTellsItsOutcome) {
  ServiceUnderTest::planInstaller("sleep_ms=3000\nexit=1641\n");
  std::thread installing([] { ask("install", bundle("approved.exe")); });
  EXPECT_TRUE(waitUntil([] { return !ServiceUnderTest::installerRuns().empty(); }));
  const Json busy = ask("wait", "0");
  EXPECT_EQ(Json({busy["exitCode"], busy["installing"]["path"], busy["installing"]["processId"]}),
            Json({1, bundle("approved.exe"), ask("status", "--json")["processId"]}));
  const Json free = ask("wait", "30");
  installing.join();
  EXPECT_EQ(Json({free["exitCode"], free["installing"]}), Json({0, nullptr}));
  EXPECT_EQ(lastRecord()["time"], busy["installing"]["since"]) << "recorded before it is free";
  const Json status = ask("status", "--json");
  EXPECT_NE(status["version"], "");
  const Json& last = status["lastOutcome"];
  EXPECT_EQ(Json({status["state"], status["logFolder"], last["status"], last["exitCode"], last["path"]}),
            Json({"running", ServiceUnderTest::logDirectory(), 30001, 1641, bundle("approved.exe")}));
}

}  // namespace
}  // namespace zarn::testing
