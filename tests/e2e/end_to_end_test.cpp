// The service as its caller and its machine see it: really registered, really
// signed bundles, a real account service. The stage is made by prepare.py.
#include <algorithm>
#include <atomic>

#include "e2e/service_under_test.h"
#include "support/run_program.h"
#include "util/product_names.h"

namespace zarn::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

struct EndToEnd : OnStage {
  /// The answer to an installation, and the part of the log that it adds, once that holds `last`.
  static std::pair<Answer, std::string> installLogged(const std::string& path, const std::string& last) {
    const std::size_t before = ServiceUnderTest::log().size();
    const Answer answer = install(path);
    std::string log;
    const auto isLogged = [&] {
      log = ServiceUnderTest::log();
      return log.erase(0, before).find(last) != std::string::npos;
    };
    EXPECT_TRUE(waitUntil(isLogged)) << log;
    return {answer, log};
  }
};

TEST_F(EndToEnd, ApprovedBundleIsInstalledOnceAndTheServiceEndsToBeRestarted) {
  ServiceUnderTest::planInstaller("exit=0\nlog=dd_vcredist_amd64.log\nlog=unrelated.log\n");
  const std::string installerLogs = FileUtils::join(ServiceUnderTest::logDirectory(), "Installer Logs");
  boost::filesystem::remove_all(FileUtils::toPath(installerLogs));
  // With a log of its own, which other tests' requests are not in.
  service_.stop();
  service_.start();
  const KernelHandle process = service_.process();

  EXPECT_EQ(installApproved(), (Answer{.status = 0, .exitCode = 0}));
  const auto runs = ServiceUnderTest::installerRuns();
  ASSERT_EQ(runs.size(), 1U);
  EXPECT_EQ(runs[0].who, "genuine");
  EXPECT_EQ(runs[0].commandLine, ServiceUnderTest::stagedCopy() + " /quiet /norestart");
  EXPECT_FALSE(FileUtils::exists(ServiceUnderTest::stagedCopy()));
  EXPECT_TRUE(FileUtils::exists(FileUtils::join(installerLogs, "dd_vcredist_amd64.log")));
  EXPECT_FALSE(FileUtils::exists(FileUtils::join(installerLogs, "unrelated.log")));
  EXPECT_EQ(ServiceUnderTest::waitForExit(process), 1467U);
  const std::string log = ServiceUnderTest::log();
  for (const char* line : {"INFO - Zarn Update Service v", "INFO - Windows version: 10.0 (Build ",
                           "DEBUG - Shutting down for restart"})
    EXPECT_THAT(log, HasSubstr(line));
  for (const std::string& line :
       {"bundlePath: " + bundle("approved.exe"), std::string("Certificate integrity verified"),
        std::string("Certificate identity verified"), std::string("Installer exit code:  0 - ")})
    EXPECT_THAT(log, HasSubstr("DEBUG - [UpdateService/Install] " + line));
  EXPECT_THAT(log, AllOf(Not(HasSubstr("SERVICE_STOPPED")), Not(HasSubstr(" ERROR - "))));

  service_.start();
  EXPECT_EQ(ServiceUnderTest::log(1), log) << "the second start rotates the log";
}

TEST_F(EndToEnd, InstallerExitCodesBecomeStatuses) {
  for (const auto& [exitCode, status] : {std::pair(1641L, 30001L),
                                         {30003, 30003},
                                         {259, 30002},
                                         {42, 30002},
                                         {static_cast<long>(0xC0000005), 30002},
                                         {3010, 30000}}) {
    ServiceUnderTest::planInstaller("exit=" + std::to_string(exitCode) + "\n");
    const KernelHandle process = service_.process();
    EXPECT_EQ(installApproved(), (Answer{.status = status, .exitCode = exitCode}));
    if (status == 30000)
      EXPECT_EQ(ServiceUnderTest::waitForExit(process), 1467U);
    else
      EXPECT_TRUE(service_.isRunning()) << exitCode;
  }
}

TEST_F(EndToEnd, InstallerThatCannotStartReportsTheSystemsError) {
  const auto [answer, log] = installLogged(bundle("unstartable.exe"), "Copying installer logs");
  EXPECT_EQ(answer.status, 30002);
  EXPECT_THAT(answer.exitCode, ::testing::AnyOf(ERROR_BAD_EXE_FORMAT, ERROR_EXE_MACHINE_TYPE_MISMATCH));
  EXPECT_THAT(log, AllOf(HasSubstr("Certificate identity verified"),
                         HasSubstr("UpdateService::RunInstaller: CreateProcess failed")));
  EXPECT_TRUE(service_.isRunning());
}

TEST_F(EndToEnd, WhatIsNotProvenNeverRuns) {
  const TempDirectory dir;
  const auto sparseFile = [&](const char* name, std::uint64_t size) {
    const std::string path = dir / name;
    writeFile(path, "MZ");
    boost::filesystem::resize_file(FileUtils::toPath(path), size);
    return path;
  };
  constexpr std::uint64_t gibibyte = 0x40000000;
  const struct {
    std::string path;
    long status;
    const char* line;
  } cases[] = {
      {bundle("unsigned.exe"), 30004, "ImageGetCertificateHeader() failed"},
      {bundle("changed.exe"), 30004, "Certificate couldn't be verified with the following error:"},
      {bundle("untrusted-root.exe"), 30004, "Certificate couldn't be verified with the following error:"},
      {bundle("expired.exe"), 30004, "Certificate couldn't be verified with the following error:"},
      {bundle("other-publisher.exe"), 30005, "Certificate Common Name: Other Publisher"},
      {bundle("decoy.exe"), 30005, "Certificate Common Name: Other Publisher"},
      {bundle("CAPITALS.EXE"), 30002, "Provided bundle has invalid extension."},
      {bundle("no-extension"), 30002, "Provided bundle has invalid extension."},
      {bundle("missing.exe"), 30002, "CreateFileW() failed."},
      {R"(\\.\pipe\bundle.exe)", 30002, "CreateFileW() failed."},
      {R"(\\.\NUL)", 30002, "CreateFileW() failed."},
      {"", 30002, "CreateFileW() failed."},
      {sparseFile("over.exe", gibibyte + 1), 30002, "Provided bundle is too large."},
      {sparseFile("exact.exe", gibibyte), 30004, "ImageGetCertificateHeader() failed"}};
  for (const auto& [path, status, line] : cases) {
    EXPECT_EQ(installLogged(path, line).first.status, status) << path;
    EXPECT_TRUE(service_.isRunning()) << path;
    // What has been judged is left for the next start to remove.
    EXPECT_EQ(FileUtils::exists(ServiceUnderTest::stagedCopy()), status != 30002) << path;
    boost::filesystem::remove(FileUtils::toPath(ServiceUnderTest::stagedCopy()));
  }
  EXPECT_TRUE(ServiceUnderTest::installerRuns().empty());
  EXPECT_EQ(installApproved().status, 30001) << "and the next good request is served";
}

TEST_F(EndToEnd, ApprovalIsReadAnewForEveryRequest) {
  EXPECT_EQ(check(bundle("approved.exe")), 0);
  const std::string otherDigit = R"({"certs": ["F)" + stageSetting("approved_digest").substr(1) + R"("]})";
  for (const std::string& profile :
       {std::string(R"({"certs": []})"), std::string("{}"), std::string("not json"), otherDigit,
        std::string(1000, '[') + std::string(1000, ']')}) {
    setProfile(profile);
    EXPECT_EQ(check(bundle("approved.exe")), 30005) << profile;
  }
  approveOnly(stageSetting("decoy_digest"));
  EXPECT_EQ(check(bundle("approved.exe")), 30005);
  EXPECT_EQ(check(bundle("decoy.exe")), 0) << "signed by the other publisher, now the approved one";
}

TEST_F(EndToEnd, PolicyRefusesOtherProductsAndOlderVersions) {
  const MachineSetting policy{names::kPolicyKey.wide};
  const MachineSetting store{names::kServiceKey.wide};
  const auto isInstalled = [&] {
    const auto runsBefore = ServiceUnderTest::installerRuns().size();
    const Answer answer = installApproved();
    const bool ran = ServiceUnderTest::installerRuns().size() > runsBefore;
    EXPECT_EQ(answer.status, ran ? 30001 : 30005);
    EXPECT_EQ(check(bundle("approved.exe")), ran ? 0 : 30005);
    return ran;
  };
  policy.text(L"RequiredProduct", L"Zarn Media Server");
  policy.number(L"RefuseOlder", 1);
  store.text(L"HighestInstalledVersion", L"7.8.9.0");
  EXPECT_TRUE(isInstalled());
  store.text(L"HighestInstalledVersion", L"7.8.10.0");
  EXPECT_FALSE(isInstalled());
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("The bundle is refused by policy: "));
  policy.number(L"RefuseOlder", 0);
  EXPECT_TRUE(isInstalled());
  policy.text(L"RequiredProduct", L"Zarn Something Else");
  EXPECT_FALSE(isInstalled());
  policy.number(L"RequiredProduct", 1);
  EXPECT_FALSE(isInstalled()) << "what cannot be read refuses";
}

TEST_F(EndToEnd, AppDataPathMovesTheLogAndRotatesIt) {
  const TempDirectory dir;
  ASSERT_TRUE(setAppDataPath(dir.path()));
  EXPECT_EQ(storedAppDataPath(), dir.path());
  const std::string file = dir / R"(Zarn Media Server\Logs\Zarn Update Service.log)";
  const auto isLogged = [&](const std::string& text, const std::string& old = "") {
    return waitUntil([&] { return (old + readFile(file)).find(text) != std::string::npos; });
  };
  EXPECT_TRUE(isLogged("Zarn Update Service v"));
  // It stands at the end of the old file, or in the new one where the writer still had a
  // line before it to write when the rotation was requested.
  EXPECT_TRUE(isLogged("Log rotation requested.", ServiceUnderTest::log()));
  EXPECT_EQ(check(bundle("unsigned.exe")), 30004);
  EXPECT_TRUE(isLogged("CheckBundle() from UpdateInterface: "));
  ASSERT_TRUE(setAppDataPath(""));
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("Zarn Update Service v"));
}

TEST_F(EndToEnd, AnUnwritableLogFolderStopsNoUpdate) {
  const TempDirectory dir;
  const std::string inTheWay = dir / R"(Zarn Media Server\Logs)";
  boost::filesystem::create_directory(FileUtils::toPath(dir / "Zarn Media Server"));
  writeFile(inTheWay, "kept");
  ASSERT_TRUE(setAppDataPath(dir.path()));
  EXPECT_EQ(installApproved(), (Answer{.status = 30001, .exitCode = 1641}));
  EXPECT_EQ(readFile(inTheWay), "kept");
  ASSERT_TRUE(setAppDataPath(""));
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("Zarn Update Service v"));
}

TEST_F(EndToEnd, InstallsQueueAndChecksPassBesideThem) {
  ServiceUnderTest::planInstaller("exit=1641\nsleep_ms=700\n");
  std::vector<std::jthread> callers;
  std::atomic<int> installed{0};
  for (int i = 0; i < 3; ++i)
    callers.emplace_back([&] { installed += installApproved().status == 30001 ? 1 : 0; });
  ASSERT_TRUE(waitUntil([] { return !ServiceUnderTest::installerRuns().empty(); }));
  EXPECT_EQ(check(bundle("approved.exe")), 0);
  EXPECT_LT(ServiceUnderTest::installerRuns().size(), 3U) << "the check waited for the installs";
  callers.clear();
  EXPECT_EQ(installed, 3);

  auto runs = ServiceUnderTest::installerRuns();
  ASSERT_EQ(runs.size(), 3U);
  std::ranges::sort(runs, {}, &InstallerRun::startedMs);
  for (std::size_t i = 1; i < runs.size(); ++i) EXPECT_GE(runs[i].startedMs, runs[i - 1].endedMs);
}

TEST_F(EndToEnd, TwoThousandChecksFromThirtyTwoThreadsAreAnsweredAndLogged) {
  constexpr int total = 2000;
  const auto logged = [&] {
    std::size_t count = 0;
    for (int file = 0; file < 3; ++file)
      for (const char* name : {"unsigned.exe", "approved.exe"})
        count += countOf("CheckBundle() from UpdateInterface: " + bundle(name), ServiceUnderTest::log(file));
    return count;
  };
  const std::size_t before = logged();
  std::atomic<int> next{0}, right{0};
  std::vector<std::jthread> callers;
  for (int i = 0; i < 32; ++i) {
    callers.emplace_back([&] {
      for (int n = next++; n < total; n = next++) {
        const bool approved = n % 4 == 0;  // every fourth goes all the way to the account service
        right += check(bundle(approved ? "approved.exe" : "unsigned.exe")) == (approved ? 0 : 30004) ? 1 : 0;
      }
    });
  }
  callers.clear();
  EXPECT_EQ(right, total);
  EXPECT_TRUE(waitUntil([&] { return logged() == before + total; })) << logged() - before;
  EXPECT_THAT(ServiceUnderTest::log(), HasSubstr(" (reused)"));
}

TEST_F(EndToEnd, StartedFromAConsoleItSaysSoAndEndsWithZero) {
  ASSERT_EQ(service_.stop(), 0U);
  EXPECT_EQ(runProgram(R"(C:\Program Files\Zarn Update Service\ZarnUpdateService.exe)", {}).exitCode, 0U);
  EXPECT_THAT(ServiceUnderTest::log(),
              AllOf(HasSubstr("Win32Service::runAsService() - StartServiceCtrlDispatcher() failed"),
                    HasSubstr("Win32 Error: 1063")));
}

}  // namespace
}  // namespace zarn::testing
