// The service as its caller and its machine see it: really registered, really
// signed bundles, a real account service. The stage is made by prepare.py.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "e2e/caller.h"
#include "e2e/service_under_test.h"
#include "support/run_program.h"
#include "support/temp_directory.h"
#include "util/file_utils.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class EndToEnd : public OnStage {
 protected:
  /// The part of the log that `action` adds, once it holds `last`.
  std::string logOf(const std::function<void()>& action, const std::string& last) {
    const std::size_t before = ServiceUnderTest::log().size();
    action();
    const auto added = [&] {
      const std::string log = ServiceUnderTest::log();
      return log.substr(std::min(before, log.size()));
    };
    EXPECT_TRUE(waitUntil([&] { return added().find(last) != std::string::npos; })) << added();
    return added();
  }
};

TEST_F(EndToEnd, ApprovedBundleIsInstalledOnceAndTheServiceEndsToBeRestarted) {
  ServiceUnderTest::planInstaller("exit=0\nlog=dd_vcredist_amd64.log\nlog=unrelated.log\n");
  const std::string installerLogs = FileUtils::join(ServiceUnderTest::logDirectory(), "Installer Logs");
  boost::filesystem::remove_all(FileUtils::toPath(installerLogs));
  const KernelHandle process = service_.process();

  EXPECT_EQ(install(bundle("approved.exe")), (Answer{.status = 0, .exitCode = 0}));
  const auto runs = ServiceUnderTest::installerRuns();
  ASSERT_EQ(runs.size(), 1U);
  EXPECT_EQ(runs[0].who, "genuine");
  EXPECT_EQ(runs[0].commandLine, ServiceUnderTest::stagedCopy() + " /quiet /norestart");
  EXPECT_FALSE(FileUtils::exists(ServiceUnderTest::stagedCopy()));
  EXPECT_TRUE(FileUtils::exists(FileUtils::join(installerLogs, "dd_vcredist_amd64.log")));
  EXPECT_FALSE(FileUtils::exists(FileUtils::join(installerLogs, "unrelated.log")));

  EXPECT_EQ(ServiceUnderTest::waitForExit(process), 1467U);
  const std::string log = ServiceUnderTest::log();
  const std::string install = "DEBUG - [UpdateService/Install] ";
  for (const std::string& line : std::vector{
           std::string("INFO - Zarn Update Service v"), std::string("INFO - Windows version: 10.0 (Build "),
           install + "bundlePath: " + bundle("approved.exe"), install + "Certificate integrity verified",
           install + "Certificate identity verified", install + "Installer exit code:  0 - ",
           std::string("DEBUG - Shutting down for restart")}) {
    EXPECT_THAT(log, HasSubstr(line));
  }
  EXPECT_THAT(log, AllOf(Not(HasSubstr("SERVICE_STOPPED")), Not(HasSubstr(" ERROR - "))));

  service_.start();
  EXPECT_EQ(ServiceUnderTest::log(1), log) << "the second start rotates the log";
}

TEST_F(EndToEnd, InstallerExitCodesBecomeStatuses) {
  const struct {
    unsigned long exitCode;
    long status;
    bool restarts;
  } cases[] = {{3010, 30000, true}, {1641, 30001, false}, {30003, 30003, false},
               {259, 30002, false}, {42, 30002, false},   {0xC0000005, 30002, false}};
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.exitCode);
    service_.start();
    ServiceUnderTest::planInstaller("exit=" + std::to_string(static_cast<long>(expected.exitCode)) + "\n");
    const KernelHandle process = service_.process();
    EXPECT_EQ(install(bundle("approved.exe")),
              (Answer{.status = expected.status, .exitCode = static_cast<long>(expected.exitCode)}));
    if (expected.restarts) {
      EXPECT_EQ(ServiceUnderTest::waitForExit(process), 1467U);
    } else {
      EXPECT_TRUE(service_.isRunning());
    }
  }
}

TEST_F(EndToEnd, InstallerThatCannotStartReportsTheSystemsError) {
  Answer answer;
  const std::string log =
      logOf([&] { answer = install(bundle("unstartable.exe")); }, "Copying installer logs");
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
      {sparseFile("exact.exe", gibibyte), 30004, "ImageGetCertificateHeader() failed"},
  };
  for (const auto& refused : cases) {
    SCOPED_TRACE(refused.path);
    Answer answer;
    const std::string log = logOf([&] { answer = install(refused.path); }, refused.line);
    EXPECT_EQ(answer.status, refused.status);
    EXPECT_TRUE(service_.isRunning());
    const bool staged = refused.status != 30002;
    EXPECT_EQ(FileUtils::exists(ServiceUnderTest::stagedCopy()), staged)
        << "left for the next start to remove";
    boost::filesystem::remove(FileUtils::toPath(ServiceUnderTest::stagedCopy()));
  }
  EXPECT_TRUE(ServiceUnderTest::installerRuns().empty());
  EXPECT_EQ(install(bundle("approved.exe")).status, 30001) << "and the next good request is served";
}

TEST_F(EndToEnd, ApprovalIsReadAnewForEveryRequest) {
  EXPECT_EQ(check(bundle("approved.exe")).status, 0);
  const std::string profiles[] = {
      R"({"certs": []})",
      "{}",
      "not json",
      R"({"certs": ["F)" + stageSetting("approved_digest").substr(1) + R"("]})",
      std::string(1000, '[') + std::string(1000, ']'),
  };
  for (const auto& profile : profiles) {
    setProfile(profile);
    EXPECT_EQ(check(bundle("approved.exe")).status, 30005) << profile;
  }
  approveOnly(stageSetting("decoy_digest"));
  EXPECT_EQ(check(bundle("approved.exe")).status, 30005);
  EXPECT_EQ(check(bundle("decoy.exe")).status, 0) << "signed by the other publisher, now the approved one";
}

/// Values of the machine's registry for the life of a test.
class MachineSetting {
 public:
  explicit MachineSetting(const wchar_t* key) : key_(key) {}
  MachineSetting(const MachineSetting&) = delete;
  MachineSetting& operator=(const MachineSetting&) = delete;
  ~MachineSetting() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, key_); }

  void text(const wchar_t* name, const std::wstring& value) const {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key_, name, REG_SZ, value.c_str(),
                    static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
  }
  void number(const wchar_t* name, DWORD value) const {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key_, name, REG_DWORD, &value, sizeof(value));
  }

 private:
  const wchar_t* key_;
};

TEST_F(EndToEnd, PolicyRefusesOtherProductsAndOlderVersions) {
  const MachineSetting policy(names::kPolicyKey.wide);
  const MachineSetting store(names::kServiceKey.wide);
  const auto isInstalled = [&] {
    const auto runsBefore = ServiceUnderTest::installerRuns().size();
    const Answer answer = install(bundle("approved.exe"));
    const bool ran = ServiceUnderTest::installerRuns().size() > runsBefore;
    EXPECT_EQ(answer.status, ran ? 30001 : 30005);
    EXPECT_EQ(check(bundle("approved.exe")).status, ran ? 0 : 30005);
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

TEST_F(EndToEnd, StaleCopyIsRemovedAtTheNextStart) {
  EXPECT_EQ(install(bundle("unsigned.exe")).status, 30004);
  ASSERT_TRUE(FileUtils::exists(ServiceUnderTest::stagedCopy()));
  EXPECT_EQ(service_.stop(), 0U);
  EXPECT_THAT(ServiceUnderTest::log(), HasSubstr("Service stopped with exitcode 0"));
  service_.start();
  EXPECT_FALSE(FileUtils::exists(ServiceUnderTest::stagedCopy()));
}

TEST_F(EndToEnd, AppDataPathMovesTheLogAndRotatesIt) {
  const TempDirectory dir;
  ASSERT_TRUE(setAppDataPath(dir.path()));
  wchar_t stored[MAX_PATH] = {};
  DWORD size = sizeof(stored);
  EXPECT_EQ(RegGetValueW(HKEY_CURRENT_USER, LR"(Software\Zarn, Inc.\Zarn Media Server)", L"LocalAppDataPath",
                         RRF_RT_REG_SZ, nullptr, stored, &size),
            ERROR_SUCCESS);
  EXPECT_EQ(StringUtils::utf16to8(stored), dir.path());

  const std::string moved = FileUtils::join(dir / "Zarn Media Server", "Logs");
  const std::string file = FileUtils::join(moved, "Zarn Update Service.log");
  EXPECT_TRUE(waitUntil([&] { return readFile(file).find("Zarn Update Service v") != std::string::npos; }));
  // It stands at the end of the old file, or in the new one where the writer still had a
  // line before it to write when the rotation was requested.
  EXPECT_TRUE(waitUntil([&] {
    return (ServiceUnderTest::log() + readFile(file)).find("Log rotation requested.") != std::string::npos;
  }));
  EXPECT_EQ(check(bundle("unsigned.exe")).status, 30004);
  EXPECT_TRUE(waitUntil(
      [&] { return readFile(file).find("CheckBundle() from UpdateInterface: ") != std::string::npos; }));

  ASSERT_TRUE(setAppDataPath(""));
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("Zarn Update Service v"));
}

TEST_F(EndToEnd, AnUnwritableLogFolderStopsNoUpdate) {
  const TempDirectory dir;
  boost::filesystem::create_directory(FileUtils::toPath(dir / "Zarn Media Server"));
  const std::string inTheWay = FileUtils::join(dir / "Zarn Media Server", "Logs");
  writeFile(inTheWay, "kept");
  ASSERT_TRUE(setAppDataPath(dir.path()));
  EXPECT_EQ(install(bundle("approved.exe")), (Answer{.status = 30001, .exitCode = 1641}));
  EXPECT_EQ(readFile(inTheWay), "kept");
  ASSERT_TRUE(setAppDataPath(""));
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("Zarn Update Service v"));
}

TEST_F(EndToEnd, InstallsQueueAndChecksPassBesideThem) {
  ServiceUnderTest::planInstaller("exit=1641\nsleep_ms=700\n");
  std::vector<std::thread> callers;
  std::atomic<int> installed{0};
  for (int i = 0; i < 3; ++i) {
    callers.emplace_back([&] { installed += install(bundle("approved.exe")).status == 30001 ? 1 : 0; });
  }
  ASSERT_TRUE(waitUntil([] { return !ServiceUnderTest::installerRuns().empty(); }));
  EXPECT_EQ(check(bundle("approved.exe")).status, 0);
  EXPECT_LT(ServiceUnderTest::installerRuns().size(), 3U) << "the check waited for the installs";
  for (auto& caller : callers) caller.join();
  EXPECT_EQ(installed, 3);

  auto runs = ServiceUnderTest::installerRuns();
  ASSERT_EQ(runs.size(), 3U);
  std::sort(runs.begin(), runs.end(), [](const auto& a, const auto& b) { return a.startedMs < b.startedMs; });
  for (std::size_t i = 1; i < runs.size(); ++i) EXPECT_GE(runs[i].startedMs, runs[i - 1].endedMs);
}

TEST_F(EndToEnd, StopDuringAnInstallIsAnsweredAtOnceAndDoesNotCutIt) {
  ServiceUnderTest::planInstaller("exit=1641\nsleep_ms=2000\n");
  const KernelHandle process = service_.process();
  Answer answer;
  std::thread caller([&] { answer = install(bundle("approved.exe")); });
  ASSERT_TRUE(waitUntil([] { return !ServiceUnderTest::installerRuns().empty(); }));
  const auto asked = GetTickCount64();
  service_.requestStop();
  EXPECT_LT(GetTickCount64() - asked, 1000U);
  caller.join();
  const auto runs = ServiceUnderTest::installerRuns();
  ASSERT_EQ(runs.size(), 1U);
  EXPECT_NE(runs[0].endedMs, 0U) << "the installer was cut";
  EXPECT_EQ(answer.status, 30001);
  EXPECT_EQ(ServiceUnderTest::waitForExit(process), 0U);
}

TEST_F(EndToEnd, TwoThousandChecksFromThirtyTwoThreadsAreAnsweredAndLogged) {
  constexpr int threads = 32;
  constexpr int total = 2000;
  const std::string line = "CheckBundle() from UpdateInterface: " + bundle("unsigned.exe");
  const std::string good = "CheckBundle() from UpdateInterface: " + bundle("approved.exe");
  const auto lines = [&](const std::string& text) {
    std::size_t count = 0;
    for (int file = 0; file < 3; ++file) {
      const std::string log = ServiceUnderTest::log(file);
      for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++count;
    }
    return count;
  };
  const auto all = [&] { return lines(line) + lines(good); };
  const std::size_t before = all();
  std::atomic<int> next{0};
  std::atomic<int> right{0};
  std::vector<std::thread> callers;
  for (int i = 0; i < threads; ++i) {
    callers.emplace_back([&] {
      for (int n = next++; n < total; n = next++) {
        const bool approved = n % 4 == 0;  // every fourth goes all the way to the account service
        const Answer answer = check(bundle(approved ? "approved.exe" : "unsigned.exe"));
        right += answer.status == (approved ? 0 : 30004) ? 1 : 0;
      }
    });
  }
  for (auto& caller : callers) caller.join();
  EXPECT_EQ(right, total);
  EXPECT_TRUE(waitUntil([&] { return all() == before + total; })) << all() - before;
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
