#include "update/install_request.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

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
    collaborators_.checkIntegrity = [](const std::wstring&) { return TrustResult::verified(); };
    collaborators_.checkIdentity = [](const std::wstring&, auto&) { return TrustResult::verified(); };
    collaborators_.record = [this](const InstallRecord& record) { record_ = record; };
    collaborators_.restart = [this] { ++restarts_; };
  }

  Status install(const std::string& path) {
    exitCode_ = kUnset;
    log_.clear();
    return InstallRequest(collaborators_).Install(wide(path), exitCode_);
  }
  [[nodiscard]] bool logged(LogLevel level, const std::string& text) const {
    const auto lines = log_.lines();
    return std::find(lines.begin(), lines.end(), testing::LoggedLine{level, text}) != lines.end();
  }

  testing::RecordingLog log_;
  testing::TemporaryFolder folder_;
  const std::string bundle_ = folder_.appData / "bundle.exe";
  const std::string staged_ = folder_.temp / "ZarnMediaServerUpdate.exe";
  InstallCollaborators collaborators_;
  std::int32_t exitCode_ = kUnset;
  InstallRecord record_;
  int restarts_ = 0;
};

TEST_F(InstallRequestTest, MapsTheInstallersExitCode) {
  struct Case {
    std::uint32_t exitCode;
    Status status;
    int restarts;
  };
  for (const Case& each : {Case{0, Status::Installed, 1},
                           {3010, Status::RebootRequired, 1},
                           {1641, Status::RebootInitiated, 0},
                           {30003, Status::ExitCodeUnknown, 0},
                           {259, Status::Failed, 0},
                           {0xC0000005, Status::Failed, 0}}) {
    restarts_ = 0;
    const testing::HelperOrder order(each.exitCode);
    EXPECT_EQ(install(bundle_), each.status) << each.exitCode;
    EXPECT_EQ(exitCode_, static_cast<std::int32_t>(each.exitCode));
    EXPECT_EQ(restarts_, each.restarts) << each.exitCode;
    EXPECT_EQ(order.commandLine(), staged_ + " /quiet /norestart");
    EXPECT_FALSE(FileUtils::exists(staged_));
    EXPECT_EQ(record_.status, each.status);
    EXPECT_EQ(record_.exitCode, each.exitCode);
  }
}

TEST_F(InstallRequestTest, GoesStepByStepHoldingWhatItExamines) {
  const testing::HelperOrder order(1);
  testing::writeFile(folder_.temp / "dd_vcredist.log", "kept");
  const auto check = [this](const char* name) {
    return [this, name](const std::wstring& path) {
      EXPECT_EQ(path, wide(staged_));
      EXPECT_EQ(logTags(), (Lines{"UpdateService", "Install"}));
      EXPECT_FALSE(canBeChanged(staged_));
      EXPECT_FALSE(canBeChanged(bundle_));
      log_.submit(LogLevel::Debug, name);
      return TrustResult::verified();
    };
  };
  collaborators_.checkIntegrity = check("integrity");
  collaborators_.checkIdentity = [&](const std::wstring& path, auto&) { return check("identity")(path); };
  collaborators_.runOptions.readExitCode = [](void* process, std::uint32_t& code) {
    // The installer has ended; until now its file could not be changed either.
    EXPECT_FALSE(
        canBeChanged(StringUtils::utf16to8(wide(std::getenv("TMP")) + L"\\ZarnMediaServerUpdate.exe")));
    return readExitCode(process, code);
  };
  EXPECT_EQ(install(bundle_), Status::Failed);
  EXPECT_EQ(log_.texts(),
            (Lines{"bundlePath: " + bundle_, "CheckBundle() from UpdateInterface: " + staged_, "integrity",
                   "identity", "Create Process Success! Waiting for process to complete.",
                   "Installer exit code:  1 - " + systemErrorPhrase(1), "Copying installer logs"}));
  EXPECT_TRUE(logTags().empty());
  EXPECT_EQ(testing::readFile(folder_.installerLog("dd_vcredist.log")), "kept");
}

TEST_F(InstallRequestTest, RefusesWhatTheChecksRefuse) {
  int identityChecks = 0;
  const auto refuse = [](const std::wstring&) { return TrustResult::refused(0); };
  collaborators_.checkIdentity = [&](const std::wstring&, std::optional<ObservedSigner>& signer) {
    signer = {"5e1f", "CN=Somebody"};
    ++identityChecks;
    return TrustResult::refused(5);
  };
  EXPECT_EQ(install(bundle_), Status::SignerRefused);
  collaborators_.checkIntegrity = refuse;
  EXPECT_EQ(install(bundle_), Status::SignatureRefused);
  EXPECT_EQ(InstallRequest(collaborators_).CheckBundle(L"C:\\x.exe"), Status::SignatureRefused);
  EXPECT_EQ(identityChecks, 1);
  EXPECT_EQ(exitCode_, kUnset);
  EXPECT_TRUE(FileUtils::exists(staged_));
  EXPECT_FALSE(log_.contains("Create Process Success! Waiting for process to complete."));
}

TEST_F(InstallRequestTest, RefusesUnusableBundles) {
  FileUtils::copyFile(bundle_, folder_.appData / "CAPITALS.EXE");
  FileUtils::copyFile(bundle_, folder_.appData / "none");
  for (const char* name : {"CAPITALS.EXE", "none"}) {
    EXPECT_EQ(install(folder_.appData / name), Status::Failed);
    EXPECT_TRUE(logged(LogLevel::Error, "Provided bundle has invalid extension.")) << name;
  }
  for (const std::string& path :
       {folder_.appData / "missing.exe", std::string(R"(\\.\NUL)"), std::string()}) {
    EXPECT_EQ(install(path), Status::Failed);
    EXPECT_TRUE(logged(LogLevel::Error, "CreateFileW() failed.")) << path;
  }
  FileUtils::createDirectories(staged_);
  testing::writeFile(FileUtils::join(staged_, "in the way"), "");
  EXPECT_EQ(install(bundle_), Status::Failed);
  EXPECT_TRUE(logged(LogLevel::Error, "Failed to copy bundle to temp directory."));
  EXPECT_EQ(exitCode_, kUnset);
}

TEST_F(InstallRequestTest, AcceptsOneGibibyteAndNotAByteMore) {
  // Of a wrong extension, so that the accepted one is not copied.
  const std::string large = folder_.appData / "large.bin";
  for (const auto& [bytes, complaint] : {std::pair{0x40000000LL, "Provided bundle has invalid extension."},
                                         {0x40000001LL, "Provided bundle is too large."}}) {
    {
      const FileHandle file(
          CreateFileW(wide(large).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
      LARGE_INTEGER end;
      end.QuadPart = bytes;
      ASSERT_TRUE(SetFilePointerEx(file.get(), end, nullptr, FILE_BEGIN) && SetEndOfFile(file.get()));
    }
    EXPECT_EQ(install(large), Status::Failed);
    EXPECT_TRUE(logged(LogLevel::Error, complaint));
  }
}

TEST_F(InstallRequestTest, ChecksACallersFileOnlyWhenItIsOne) {
  std::vector<std::wstring> checked;
  collaborators_.checkIntegrity = [&](const std::wstring& path) {
    checked.push_back(path);
    return TrustResult::verified();
  };
  const InstallRequest request(collaborators_);
  EXPECT_EQ(request.checkCallersBundle(wide(bundle_)), Status::Installed);
  EXPECT_EQ(request.checkCallersBundle(L"C:\\missing.exe"), Status::Installed);
  for (const wchar_t* path :
       {LR"(\\.\NUL)", LR"(\\.\pipe\zarn-nobody.exe)", LR"(//./pipe/zarn-nobody.exe)"}) {
    EXPECT_EQ(request.checkCallersBundle(path), Status::SignatureRefused);
  }
  EXPECT_EQ(checked, (std::vector<std::wstring>{wide(bundle_), L"C:\\missing.exe"}));
}

TEST_F(InstallRequestTest, RunsOneAtATime) {
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  collaborators_.checkIntegrity = [&](const std::wstring&) {
    most = std::max<int>(most, ++inside);
    Sleep(20);
    --inside;
    return TrustResult::refused(1);
  };
  const InstallRequest request(collaborators_);
  std::array<std::thread, 4> callers;
  for (std::thread& caller : callers) {
    caller = std::thread([&] {
      std::int32_t unused = 0;
      EXPECT_EQ(request.Install(wide(bundle_), unused), Status::SignatureRefused);
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(most.load(), 1);
}

}  // namespace
}  // namespace zarn
