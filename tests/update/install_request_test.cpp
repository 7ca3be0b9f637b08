// The steps of a request and what is held meanwhile; tests/e2e sees what becomes of which bundle.
#include "update/install_request.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "os/error_text.h"
#include "support/recording_log.h"
#include "trust/scripted_trust_api.h"
#include "update/helper.h"

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
std::string secondLine(std::uint32_t code) {
  return "    Win32 Error: " + std::to_string(code) + " " + systemErrorText(code);
}

class InstallRequestTest : public ::testing::Test {
 protected:
  InstallRequestTest() { begin(); }

  /// A bundle that everybody approves.
  void begin() {
    bundle_ = folder_.appData / "bundle.exe";
    FileUtils::deleteFile(bundle_);
    FileUtils::copyFile(ZARN_TEST_HELPER, bundle_);
    with_ = {.openBundle = openBundle,
             .checkIntegrity = [this](auto&, auto&) { return verified_; },
             .checkIdentity = [this](auto&) { return IdentityResult{verified_}; },
             .checkPolicy = [](auto&) { return judgeByPolicy({}, {}, {}); },
             .installed = [](auto&) {},
             .record = [this](auto& record) { record_ = record; },
             .restart = [this] { restarted_ = true; },
             .runOptions = {}};
    restarted_ = false;
    log_.clear();
  }

  Status install() { return InstallRequest(with_).Install({}, wide(bundle_), exitCode_); }

  const TrustResult verified_ = testing::verifiedByScript();
  testing::RecordingLog log_;
  testing::TemporaryFolder folder_;
  std::string bundle_;
  const std::string staged_ = folder_.temp / "ZarnMediaServerUpdate.exe";
  InstallCollaborators with_;
  std::int32_t exitCode_ = kUnset;
  InstallRecord record_;
  bool restarted_ = false;
};

TEST_F(InstallRequestTest, GoesStepByStepHoldingWhatItExamines) {
  const testing::HelperOrder order(1);
  testing::writeFile(folder_.temp / "dd_vcredist.log", "kept");
  const auto look = [this](const char* name, const std::wstring& path) {
    EXPECT_EQ(path, wide(staged_));
    EXPECT_EQ(logTagPrefix(), "[UpdateService/Install] ");
    EXPECT_FALSE(canBeChanged(staged_));
    EXPECT_FALSE(canBeChanged(bundle_));
    log_.submit(LogLevel::Debug, name);
    return verified_;
  };
  with_.checkIntegrity = [&](auto& path, auto&) { return look("integrity", path); };
  with_.checkIdentity = [&](auto& path) { return IdentityResult{look("identity", path)}; };
  with_.runOptions.readExitCode = [](void* process) {
    // The installer has ended; until now its file could not be changed either.
    EXPECT_FALSE(canBeChanged(StringUtils::utf16to8(stagedInstallerPath())));
    return readExitCode(process);
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

TEST_F(InstallRequestTest, RunsNothingThatIsRefusedAndRecordsWhichCheckJudgedOrCouldNot) {
  const auto signer = [this](ProfileState profile) {
    with_.checkIdentity = [profile](auto&) {
      return IdentityResult{TrustResult::refused(5), Signer{"5e1f", "CN=Somebody"}, profile};
    };
  };
  FileHandle holder;
  const struct {
    std::function<void()> arrange;
    Status status;
    std::string decidingCheck, line;
  } cases[] = {
      {[&] {
         with_.openBundle = [](auto&) -> Result<FileHandle> {
           SetLastError(0);
           return failure(ERROR_FILE_NOT_FOUND);
         };
       },
       Status::Failed, "open failed: " + describeSystemError(2), secondLine(2)},
      {[&] { boost::filesystem::resize_file(FileUtils::toPath(bundle_), 0x40000001); }, Status::Failed,
       "size refused: more than 1 GiB", "Provided bundle is too large."},
      {[&] { FileUtils::move(bundle_, bundle_ + "X"), bundle_ += "X"; }, Status::Failed,
       "extension refused: not \".exe\" in these letters", "Provided bundle has invalid extension."},
      {[&] { testing::writeFile(staged_, "held"), holder = openForWriting(staged_); }, Status::Failed,
       "copy failed: " + describeSystemError(ERROR_FILE_EXISTS), secondLine(ERROR_FILE_EXISTS)},
      {[&] { holder.reset(), with_.checkIntegrity = [](auto&, auto&) { return TrustResult::refused(0); }; },
       Status::SignatureRefused, "integrity refused: " + describeSystemError(31), ""},
      {[&] { signer(ProfileState::Had); }, Status::SignerRefused,
       "identity refused: " + describeSystemError(5), ""},
      {[&] { signer(ProfileState::NotHad); }, Status::SignerRefused,
       "identity failed: " + describeSystemError(5), ""},
      {[&] { with_.checkPolicy = [](auto&) { return PolicyResult::refused("it is older"); }; },
       Status::SignerRefused, "policy refused: it is older", ""},
  };
  for (const auto& [arrange, status, decidingCheck, line] : cases) {
    begin();
    arrange();
    EXPECT_EQ(install(), status) << decidingCheck;
    const auto decided =
        std::ranges::find_if(record_.checks, [](auto& one) { return one.verdict != "passed"; });
    EXPECT_EQ(decided->name + " " + decided->verdict + ": " + decided->detail, decidingCheck);
    EXPECT_EQ(record_.status, status);
    EXPECT_EQ(record_.signerSubject, decided->name == "identity" ? "CN=Somebody" : "");
    EXPECT_TRUE(line.empty() || log_.contains(line)) << line;
    EXPECT_FALSE(log_.contains("Create Process Success! Waiting for process to complete."));
  }
  EXPECT_EQ(exitCode_, kUnset);
}

TEST_F(InstallRequestTest, ChecksACallersFileByTheNameThatItsHandleHas) {
  const auto file = openBundle(wide(bundle_));
  std::vector<std::wstring> checked;
  with_.checkIntegrity = [&](auto& path, auto& shownAs) {
    checked.insert(checked.end(), {path, shownAs});
    EXPECT_FALSE(canBeChanged(bundle_));
    return verified_;
  };
  const InstallRequest request(with_);
  EXPECT_EQ(request.checkCallersBundle(wide(bundle_)), Status::Installed);
  for (const wchar_t* path :
       {LR"(C:\missing.exe)", LR"(\\.\NUL)", LR"(\\.\pipe\zarn-nobody.exe)", LR"(//./pipe/zarn-nobody.exe)",
        LR"(\\nobody\share\bundle.exe)", L"bundle.exe"}) {
    EXPECT_EQ(request.checkCallersBundle(path), Status::SignatureRefused);
    EXPECT_TRUE(log_.contains("Failed CreateFile() of " + StringUtils::utf16to8(path)));
  }
  EXPECT_EQ(checked, (std::vector<std::wstring>{finalPath(file->get()).value(), wide(bundle_)}));
}

TEST_F(InstallRequestTest, AnswersWithTheInstallersExitCodeAndRestartsWhereItTookEffect) {
  for (const auto& [code, status, restarts] :
       {std::tuple{0U, 0, true}, {1641U, 30001, false}, {0xC0000005U, 30002, false}}) {
    const testing::HelperOrder order(code);
    begin();
    EXPECT_EQ(numberOf(install()), status) << code;
    EXPECT_EQ(static_cast<std::uint32_t>(exitCode_), code);
    EXPECT_EQ(record_.exitCode, code);
    EXPECT_EQ(restarted_, restarts) << code;
  }
}

TEST_F(InstallRequestTest, AnExitCodeThatCannotBeReadIsAStatusOfItsOwn) {
  const testing::HelperOrder order(0);
  static HANDLE doubtful = nullptr;
  with_.runOptions.readExitCode = [](void* process) -> Result<std::uint32_t> {
    doubtful = process;
    SetLastError(0);
    return failure(ERROR_INVALID_HANDLE);
  };
  EXPECT_EQ(install(), Status::ExitCodeUnknown);
  EXPECT_EQ(exitCode_, 30003);
  EXPECT_FALSE(restarted_);
  EXPECT_TRUE(log_.contains("Failed to get exit code") && log_.contains(secondLine(ERROR_INVALID_HANDLE)));
  EXPECT_NE(GetProcessId(doubtful), 0U) << "a handle in doubt is not closed";
  CloseHandle(doubtful);
}

TEST_F(InstallRequestTest, NothingThatFailsAfterTheInstallerChangesTheAnswer) {
  const testing::HelperOrder order(3010);
  with_.record = [](auto&) { throw std::bad_alloc(); };
  with_.restart = [this] { restarted_ = true, throw std::runtime_error("the listener is gone"); };
  EXPECT_EQ(install(), Status::RebootRequired);
  EXPECT_TRUE(restarted_ && exitCode_ == 3010);
}

TEST_F(InstallRequestTest, RecordsWhoAskedAndWhatWasNotEvenBegun) {
  InstallRequest(with_).refuse({"S-1-5-7", {}, ""}, wide(bundle_), "too many requests wait");
  EXPECT_EQ(record_.caller.sid + record_.path, "S-1-5-7" + bundle_);
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
