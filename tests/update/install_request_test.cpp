// The steps of a request and what is held meanwhile; tests/e2e sees what becomes of which bundle.
#include "update/install_request.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "support/recording_log.h"
#include "update/helper.h"
#include "update/staged_installer.h"
#include "util/windows_handles.h"

namespace zarn {
namespace {

using testing::wide;
using Lines = std::vector<std::string>;

constexpr std::int32_t kUnset = -77;

bool canBeChanged(const std::string& path) {
  const FileHandle file(CreateFileW(wide(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, 0, nullptr));
  return file.isValid() || MoveFileW(wide(path).c_str(), wide(path + ".moved").c_str()) != 0 ||
         DeleteFileW(wide(path).c_str()) != 0;
}

class InstallRequestTest : public ::testing::Test {
 protected:
  InstallRequestTest() {
    FileUtils::copyFile(ZARN_TEST_HELPER, bundle_);
    collaborators_.checkIntegrity = [](const std::wstring&, const std::wstring&) {
      return TrustResult::verified();
    };
    collaborators_.checkIdentity = [](const std::wstring&, auto&) { return TrustResult::verified(); };
    collaborators_.checkPolicy = [](const std::string&) { return PolicyResult::allowed(); };
    collaborators_.installed = [this](const ProductVersion&) { ++installed_; };
    collaborators_.record = [this](const InstallRecord& record) { record_ = record; };
  }

  Status install() { return InstallRequest(collaborators_).Install({}, wide(bundle_), exitCode_); }

  testing::RecordingLog log_;
  testing::TemporaryFolder folder_;
  const std::string bundle_ = folder_.appData / "bundle.exe";
  const std::string staged_ = folder_.temp / "ZarnMediaServerUpdate.exe";
  InstallCollaborators collaborators_;
  std::int32_t exitCode_ = kUnset;
  InstallRecord record_;
  int installed_ = 0;
};

TEST_F(InstallRequestTest, GoesStepByStepHoldingWhatItExamines) {
  const testing::HelperOrder order(1);
  testing::writeFile(folder_.temp / "dd_vcredist.log", "kept");
  const auto check = [this](const char* name) {
    return [this, name](const std::wstring& path) {
      EXPECT_EQ(path, wide(staged_));
      EXPECT_EQ(logTagPrefix(), "[UpdateService/Install] ");
      EXPECT_FALSE(canBeChanged(staged_));
      EXPECT_FALSE(canBeChanged(bundle_));
      log_.submit(LogLevel::Debug, name);
      return TrustResult::verified();
    };
  };
  collaborators_.checkIntegrity = [&](const std::wstring& path, auto&) { return check("integrity")(path); };
  collaborators_.checkIdentity = [&](const std::wstring& path, auto&) { return check("identity")(path); };
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
  int identityChecks = 0;
  collaborators_.checkIdentity = [&](const std::wstring&, IdentityFacts& facts) {
    facts = {ObservedSigner{"5e1f", "CN=Somebody"}, true};
    ++identityChecks;
    return TrustResult::refused(5);
  };
  EXPECT_EQ(install(), Status::SignerRefused);
  EXPECT_EQ(record_.signerSubject, "CN=Somebody");
  collaborators_.checkIntegrity = [](const std::wstring&, const std::wstring&) {
    return TrustResult::refused(0);
  };
  EXPECT_EQ(install(), Status::SignatureRefused);
  EXPECT_EQ(identityChecks, 1);
  collaborators_.checkIntegrity = [](const auto&, const auto&) { return TrustResult::verified(); };
  collaborators_.checkIdentity = [](const auto&, auto&) { return TrustResult::verified(); };
  collaborators_.checkPolicy = [](const std::string&) { return PolicyResult::refused("it is older"); };
  EXPECT_EQ(install(), Status::SignerRefused);
  EXPECT_EQ(record_.checks.at(static_cast<std::size_t>(Check::Policy)).detail, "it is older");
  EXPECT_EQ(exitCode_, kUnset);
  EXPECT_FALSE(log_.contains("Create Process Success! Waiting for process to complete."));
}

TEST_F(InstallRequestTest, ChecksACallersFileByTheNameThatItsHandleHas) {
  const FileHandle file = openBundle(wide(bundle_));
  std::vector<std::wstring> checked;
  collaborators_.checkIntegrity = [&](const std::wstring& path, const std::wstring& shownAs) {
    checked.insert(checked.end(), {path, shownAs});
    EXPECT_FALSE(canBeChanged(bundle_));
    return TrustResult::verified();
  };
  const InstallRequest request(collaborators_);
  EXPECT_EQ(request.checkCallersBundle(wide(bundle_)), Status::Installed);
  for (const wchar_t* path :
       {LR"(C:\missing.exe)", LR"(\\.\NUL)", LR"(\\.\pipe\zarn-nobody.exe)", LR"(//./pipe/zarn-nobody.exe)",
        LR"(\\nobody\share\bundle.exe)", L"bundle.exe"}) {
    EXPECT_EQ(request.checkCallersBundle(path), Status::SignatureRefused);
    EXPECT_TRUE(log_.contains("Failed CreateFile() of " + StringUtils::utf16to8(path)));
  }
  EXPECT_EQ(checked, (std::vector<std::wstring>{finalPath(file.get()), wide(bundle_)}));
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
  const Requester requester{.caller = {.sid = "S-1-5-7", .processId = 7, .image = "C:\\caller.exe"},
                            .isGone = {}};
  InstallRequest(collaborators_).refuse(requester, wide(bundle_), "too many requests wait");
  EXPECT_EQ(record_.caller.sid, "S-1-5-7");
  EXPECT_EQ(record_.path, bundle_);
  EXPECT_EQ(record_.status, Status::Failed);
  EXPECT_EQ(record_.reason, "The request was refused: too many requests wait.");
  EXPECT_FALSE(record_.exitCode);
}

}  // namespace
}  // namespace zarn
