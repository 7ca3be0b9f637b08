// The steps of a request and what is held meanwhile; tests/e2e sees what becomes of which bundle.
#include "update/install_request.h"
#include "os/error_text.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "os/handles_win.h"
#include "support/recording_log.h"
#include "trust/scripted_trust_api.h"
#include "update/helper.h"
#include "update/staged_installer.h"

namespace zarn {
namespace {

using testing::wide;
using Lines = std::vector<std::string>;

constexpr std::int32_t kUnset = -77;

FileHandle openForWriting(const std::string& path) {
  constexpr DWORD shared = FILE_SHARE_READ | FILE_SHARE_WRITE;
  return FileHandle(
      CreateFileW(wide(path).c_str(), GENERIC_WRITE, shared, nullptr, OPEN_EXISTING, 0, nullptr));
}
bool canBeChanged(const std::string& path) {
  return openForWriting(path) || MoveFileW(wide(path).c_str(), wide(path + ".moved").c_str()) != 0 ||
         DeleteFileW(wide(path).c_str()) != 0;
}

class InstallRequestTest : public ::testing::Test {
 protected:
  InstallRequestTest() {
    FileUtils::copyFile(ZARN_TEST_HELPER, bundle_);
    collaborators_.checkIntegrity = [this](auto&, auto&) { return verified_; };
    collaborators_.checkIdentity = [this](auto&) { return IdentityResult{verified_}; };
    collaborators_.checkPolicy = [](const std::string&) { return judgeByPolicy({}, {}, {}); };
    collaborators_.installed = [](const ProductVersion&) {};
    collaborators_.record = [this](const InstallRecord& record) { record_ = record; };
  }

  Status install() { return InstallRequest(collaborators_).Install({}, wide(bundle_), exitCode_); }

  const TrustResult verified_ = testing::verifiedByScript();
  testing::RecordingLog log_;
  testing::TemporaryFolder folder_;
  const std::string bundle_ = folder_.appData / "bundle.exe";
  const std::string staged_ = folder_.temp / "ZarnMediaServerUpdate.exe";
  InstallCollaborators collaborators_;
  std::int32_t exitCode_ = kUnset;
  InstallRecord record_;
};

TEST_F(InstallRequestTest, GoesStepByStepHoldingWhatItExamines) {
  const testing::HelperOrder order(1);
  testing::writeFile(folder_.temp / "dd_vcredist.log", "kept");
  const auto check = [this](const char* name) {
    return [this, name](const std::wstring& path, auto&...) {
      EXPECT_EQ(path, wide(staged_));
      EXPECT_EQ(logTagPrefix(), "[UpdateService/Install] ");
      EXPECT_FALSE(canBeChanged(staged_));
      EXPECT_FALSE(canBeChanged(bundle_));
      log_.submit(LogLevel::Debug, name);
      return IdentityResult{verified_};
    };
  };
  collaborators_.checkIntegrity = [look = check("integrity")](auto&... names) {
    return look(names...).result;
  };
  collaborators_.checkIdentity = check("identity");
  collaborators_.runOptions.readExitCode = [](void* process, std::uint32_t& code) {
    // The installer has ended; until now its file could not be changed either.
    EXPECT_FALSE(canBeChanged(StringUtils::utf16to8(stagedInstallerPath())));
    return readExitCode(process, code);
  };
  EXPECT_EQ(install(), Status::Failed);
  EXPECT_EQ(exitCode_, 1);
  EXPECT_EQ(log_.texts(),
            (Lines{"bundlePath: " + bundle_, "CheckBundle() from UpdateInterface: " + staged_, "integrity",
                   "identity", "Create Process Success! Waiting for process to complete.",
                   "Installer exit code:  1 - " + systemErrorPhrase(1), "Copying installer logs"}));
  EXPECT_EQ(logTagPrefix(), "");
  EXPECT_FALSE(FileUtils::exists(staged_));
  EXPECT_EQ(testing::readFile(folder_.installerLog("dd_vcredist.log")), "kept");
}

TEST_F(InstallRequestTest, RunsNothingThatACheckRefuses) {
  collaborators_.checkPolicy = [](const std::string&) { return PolicyResult::refused("it is older"); };
  EXPECT_EQ(install(), Status::SignerRefused);
  EXPECT_EQ(record_.checks.at(static_cast<std::size_t>(Check::Policy)).detail, "it is older");
  int identityChecks = 0;
  for (const auto& [profile, verdict] : {std::pair{ProfileState::NotAsked, Verdict::Failed},
                                         {ProfileState::NotHad, Verdict::Failed},
                                         {ProfileState::Had, Verdict::Refused}}) {
    collaborators_.checkIdentity = [&, state = profile](const std::wstring&) {
      ++identityChecks;
      return IdentityResult{TrustResult::refused(5), Signer{"5e1f", "CN=Somebody"}, state};
    };
    EXPECT_EQ(install(), Status::SignerRefused);
    EXPECT_EQ(record_.signerSubject, "CN=Somebody");
    EXPECT_EQ(record_.checks.at(static_cast<std::size_t>(Check::Identity)).verdict, verdict);
  }
  collaborators_.checkIntegrity = [](auto&, auto&) { return TrustResult::refused(0); };
  EXPECT_EQ(install(), Status::SignatureRefused);
  EXPECT_EQ(identityChecks, 3);
  EXPECT_EQ(exitCode_, kUnset);
  EXPECT_FALSE(log_.contains("Create Process Success! Waiting for process to complete."));
}

TEST_F(InstallRequestTest, ChecksACallersFileByTheNameThatItsHandleHas) {
  const FileHandle file = openBundle(wide(bundle_));
  std::vector<std::wstring> checked;
  collaborators_.checkIntegrity = [&](const std::wstring& path, const std::wstring& shownAs) {
    checked.insert(checked.end(), {path, shownAs});
    EXPECT_FALSE(canBeChanged(bundle_));
    return verified_;
  };
  const InstallRequest request(collaborators_);
  EXPECT_EQ(request.checkCallersBundle(wide(bundle_)), Status::Installed);
  for (const wchar_t* path :
       {LR"(C:\missing.exe)", LR"(\\.\NUL)", LR"(\\.\pipe\zarn-nobody.exe)", LR"(//./pipe/zarn-nobody.exe)",
        LR"(\\nobody\share\bundle.exe)", L"bundle.exe"}) {
    EXPECT_EQ(request.checkCallersBundle(path), Status::SignatureRefused);
    EXPECT_TRUE(log_.contains("Failed CreateFile() of " + StringUtils::utf16to8(path)));
  }
  EXPECT_EQ(checked, (std::vector<std::wstring>{finalPath(file.get()).value(), wide(bundle_)}));
}

TEST_F(InstallRequestTest, ExitCodesBecomeStatusesAndTwoRestartTheService) {
  for (const auto& [code, status, restarts] : {std::tuple{0U, 0, true},
                                               {3010U, 30000, true},
                                               {1641U, 30001, false},
                                               {30003U, 30003, false},
                                               {259U, 30002, false},
                                               {42U, 30002, false},
                                               {0xC0000005U, 30002, false}}) {
    const testing::HelperOrder order(code);
    bool restarted = false;
    collaborators_.restart = [&] { restarted = true; };
    EXPECT_EQ(static_cast<int>(install()), status) << code;
    EXPECT_EQ(static_cast<std::uint32_t>(exitCode_), code);
    EXPECT_EQ(restarted, restarts) << code;
  }
}

TEST_F(InstallRequestTest, NothingThatFailsAfterTheInstallerChangesTheAnswer) {
  const testing::HelperOrder order(3010);
  bool restarted = false;
  collaborators_.record = [](const InstallRecord&) { throw std::bad_alloc(); };
  collaborators_.restart = [&] {
    restarted = true;
    throw std::runtime_error("the listener is gone");
  };
  EXPECT_EQ(install(), Status::RebootRequired);
  EXPECT_EQ(exitCode_, 3010);
  EXPECT_TRUE(restarted);
}

TEST_F(InstallRequestTest, RecordsWhoAskedAndWhatWasNotEvenBegun) {
  const Requester requester{.caller = {.sid = "S-1-5-7", .processId = {}, .image = {}}, .isGone = {}};
  InstallRequest(collaborators_).refuse(requester, wide(bundle_), "too many requests wait");
  EXPECT_EQ(record_.caller.sid, "S-1-5-7");
  EXPECT_EQ(record_.path, bundle_);
  EXPECT_EQ(record_.status, Status::Failed);
  EXPECT_EQ(record_.reason, "The request was refused: too many requests wait.");
  EXPECT_FALSE(record_.exitCode);
}

TEST(RunInstaller, LeavesAnInstallerThatOutlastsTheWait) {
  static_assert(kInstallerWaitMilliseconds == 600'000);
  const testing::RecordingLog log;
  const testing::TempDirectory folder;
  const std::string installer = folder / "an installer.exe";
  FileUtils::copyFile(ZARN_TEST_HELPER, installer);
  const testing::HelperOrder order(0, 1'000);
  EXPECT_EQ(RunInstaller(wide(installer), {.waitMilliseconds = 100}), 259U);
  EXPECT_EQ(log.lines()[1], (testing::LoggedLine{LogLevel::Error, "Wait for installer timed out."}));
  // It was not ended: its record comes when it has slept.
  for (int tries = 0; tries < 500 && order.commandLine().empty(); ++tries) Sleep(20);
  EXPECT_EQ(order.commandLine(), installer + " /quiet /norestart");
  while (DeleteFileW(wide(installer).c_str()) == 0 && GetLastError() == ERROR_ACCESS_DENIED) Sleep(20);
}

}  // namespace
}  // namespace zarn
