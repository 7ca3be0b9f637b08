// The service as its caller and its machine see it: really registered, really
// signed bundles, a real account service. The stage is made by prepare.py.
#include <map>

#include "e2e/service_under_test.h"
#include "support/run_program.h"
#include "util/product_names.h"

namespace zarn::testing {
namespace {

using ::testing::Not;
using EndToEnd = OnStage;

TEST_F(EndToEnd, ApprovedBundleIsInstalledOnceAndTheServiceEndsToBeRestarted) {
  ServiceUnderTest::planInstaller("exit=0\nlog=dd_vcredist_amd64.log\nlog=unrelated.log\n");
  const std::string installerLogs = FileUtils::join(ServiceUnderTest::logDirectory(), "Installer Logs");
  fs::remove_all(toPath(installerLogs));
  // With a log of its own, which other tests' requests are not in.
  service_.stop();
  service_.start();
  const KernelHandle process = service_.process();

  EXPECT_EQ(installApproved(), (Answer{.status = 0, .exitCode = 0}));
  EXPECT_EQ(storedText(HKEY_LOCAL_MACHINE, names::kServiceKey.wide, L"HighestInstalledVersion"), "7.8.9.0");
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

TEST_F(EndToEnd, WhatIsNotProvenNeverRuns) {
  const TempDirectory dir;
  const std::string largest = dir / "exact.exe";
  writeFile(largest, "MZ");
  fs::resize_file(toPath(largest), 0x40000000);
  const std::tuple<std::string, long, const char*> cases[] = {
      {R"(\\.\pipe\bundle.exe)", 30002, "CreateFileW() failed."},
      {"", 30002, "CreateFileW() failed."},
      {bundle("unstartable.exe"), 30002, "UpdateService::RunInstaller: CreateProcess failed"},
      {largest, 30004, "ImageGetCertificateHeader() failed"}};
  for (const auto& [path, status, line] : cases) {
    const std::size_t before = ServiceUnderTest::log().size();
    const auto isLogged = [before, wanted = line] {
      return ServiceUnderTest::log().find(wanted, before) != std::string::npos;
    };
    EXPECT_EQ(install(path).status, status) << path;
    EXPECT_TRUE(waitUntil(isLogged)) << path << ": " << line;
    EXPECT_TRUE(service_.isRunning()) << path;
    // What has been judged is left for the next start to remove.
    EXPECT_EQ(FileUtils::exists(ServiceUnderTest::stagedCopy()), status != 30002) << path;
    fs::remove(toPath(ServiceUnderTest::stagedCopy()));
  }
  EXPECT_TRUE(ServiceUnderTest::installerRuns().empty());
  EXPECT_THAT(install(bundle("unstartable.exe")).exitCode,
              ::testing::AnyOf(ERROR_BAD_EXE_FORMAT, ERROR_EXE_MACHINE_TYPE_MISMATCH));
  ServiceUnderTest::planInstaller("exit=3221225477\n");
  EXPECT_EQ(installApproved(), (Answer{.status = 30002, .exitCode = static_cast<long>(0xC0000005)}))
      << "and the next good request is served";
}

TEST_F(EndToEnd, PolicyRefusesOtherProductsAndOlderVersions) {
  const wchar_t* const policy = names::kPolicyKey.wide;
  const wchar_t* const service = names::kServiceKey.wide;
  const std::tuple<const wchar_t*, const wchar_t*, DWORD, std::wstring, bool> steps[] = {
      {policy, L"RequiredProduct", REG_SZ, L"Zarn Media Server", true},
      {policy, L"RefuseOlder", REG_DWORD, {1, 0}, true},
      {service, L"HighestInstalledVersion", REG_SZ, L"7.8.10.0", false},
      {policy, L"RefuseOlder", REG_DWORD, {0, 0}, true},
      {policy, L"RequiredProduct", REG_SZ, L"Zarn Something Else", false},
      {policy, L"RequiredProduct", REG_DWORD, {1, 0}, false}};  // what cannot be read refuses
  for (const auto& [key, name, type, value, installs] : steps) {
    const auto bytes = static_cast<DWORD>(2 * (value.size() + (type == REG_SZ ? 1 : 0)));
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, type, value.c_str(), bytes);
    EXPECT_EQ(installApproved().status, installs ? 30001 : 30005);
    EXPECT_EQ(check(bundle("approved.exe")), installs ? 0 : 30005);
    EXPECT_EQ(ServiceUnderTest::installerRuns().empty(), !installs);
    ServiceUnderTest::forgetInstallerRuns();
  }
  for (const wchar_t* const key : {policy, service}) RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine(" (reused)")) << "the connection to the account service";
}

TEST_F(EndToEnd, AppDataPathMovesTheLogAndAFolderThatCannotBeWrittenStopsNoUpdate) {
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

  const std::string inTheWay = dir / R"(elsewhere\Zarn Media Server\Logs)";
  fs::create_directories(toPath(dir / R"(elsewhere\Zarn Media Server)"));
  writeFile(inTheWay, "kept");
  ASSERT_TRUE(setAppDataPath(dir / "elsewhere"));
  EXPECT_EQ(installApproved(), (Answer{.status = 30001, .exitCode = 1641}));
  EXPECT_EQ(readFile(inTheWay), "kept");
  ASSERT_TRUE(setAppDataPath(""));
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("Zarn Update Service v"));
}

TEST_F(EndToEnd, ARealCollectorStoresWhatTheLogFileHolds) {
  EXPECT_EQ(service_.stop(), 0U);
  service_.start();
  const std::string forged = "C:\\a\n<128>Nov 21 10:15:00 x ZarnUpdateService: [operator] forged ";
  EXPECT_EQ(check(forged + std::string(1500, 'l') + ".exe"), 30004);
  EXPECT_EQ(service_.stop(), 0U);
  constexpr std::string_view head = "<135>Nov 21 10:15:00 x ZarnUpdateService: [operator] ";
  const std::map<std::string, std::string> priorities = {
      {"ERROR", "128"}, {"WARN", "132"}, {"INFO", "134"}, {"DEBUG", "135"}, {"VERBOSE", "136"}};
  std::string expected;
  std::string log = ServiceUnderTest::log();
  std::erase(log, '\r');
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t level = line.find("] ") + 2, end = line.find(" - ", level);
    expected += priorities.at(line.substr(level, end - level)) + "|x|ZarnUpdateService:| [operator] " +
                line.substr(end + 3, 1024 - head.size()) + "\n";
  }
  // Lines from before the switch may or may not have been on their way to the file.
  expected.erase(
      0, expected.find("134|x|ZarnUpdateService:| [operator] Enabling networked logging for 600 min"));
  EXPECT_THAT(expected, HasSubstr("operator] forged lll"));
  EXPECT_TRUE(waitUntil([&] { return readFile(stageSetting("collected")).ends_with(expected); })) << expected;
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
