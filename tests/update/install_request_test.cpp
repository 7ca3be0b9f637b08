// The steps of a request and what is held meanwhile; tests/e2e sees what becomes of which bundle.
#include "update/install_request.h"

#include "os/error_text.h"
#include "support/run_program.h"
#include "trust/scripted_trust_api.h"
#include "update/temporary_folder.h"
#include "util/string_utils.h"

namespace zarn::testing {
namespace {

constexpr std::int32_t kUnset = -77;

std::wstring wide(const std::string& text) {
  return StringUtils::utf8to16(text);
}
FileHandle openForWriting(const std::string& path) {
  return FileHandle(CreateFileW(wide(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, 0, nullptr));
}
bool canBeChanged(const std::string& path) {
  return openForWriting(path) || MoveFileW(wide(path).c_str(), wide(path + ".moved").c_str()) != 0 ||
         DeleteFileW(wide(path).c_str()) != 0;
}
std::string secondLine(std::uint32_t code) {
  return "    Win32 Error: " + std::to_string(code) + " " + systemErrorText(code);
}

struct InstallRequestTest : ::testing::Test {
  InstallRequestTest() { begin(); }

  /// A bundle that everybody approves.
  void begin() {
    FileUtils::deleteFile(bundle_ = folder_.appData / "bundle.exe");
    FileUtils::copyFile(ZARN_TEST_HELPER, bundle_);
    with_ = {.openBundle = openBundle,
             .checkIntegrity = [this](auto&, auto&) { return verified_; },
             .checkIdentity = [this](auto&) { return IdentityResult{verified_}; },
             .checkPolicy = [](auto&) { return judgeByPolicy({}, {}, {}); },
             .installed = [](auto&) {},
             .announce = {},
             .record = [this](auto& record) { record_ = record; },
             .restart = [this] { restarted_ = true; },
             .runOptions = {}};
  }
  /// From now on the helper program ends with `exitCode` after `sleepMs` and leaves its command line.
  void order(std::uint32_t exitCode, unsigned sleepMs = 0) const {
    setEnvironment("ZARN_HELPER", std::to_string(exitCode) + " " + std::to_string(sleepMs));
    setEnvironment("ZARN_HELPER_RECORD", commandLine_);
  }
  Status install() { return InstallRequest(with_).Install({}, wide(bundle_), exitCode_); }

  const TrustResult verified_ = verifiedByScript();
  RecordingLog log_;
  TemporaryFolder folder_;
  std::string bundle_;
  const std::string staged_ = folder_.temp / "ZarnMediaServerUpdate.exe";
  const std::string commandLine_ = folder_.appData / "command line";
  InstallCollaborators with_;
  std::int32_t exitCode_ = kUnset;
  InstallRecord record_;
  bool restarted_ = false, ended_ = false;
};

TEST_F(InstallRequestTest, GoesStepByStepHoldingWhatItExamines) {
  order(1);
  writeFile(folder_.temp / "dd_vcredist.log", "kept");
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
  EXPECT_EQ(std::tuple(exitCode_, record_.exitCode, record_.installerStarted),
            std::tuple(1, std::optional(1U), std::optional(true)));
  EXPECT_FALSE(restarted_);
  EXPECT_EQ(log_.texts(),
            (Lines{"bundlePath: " + bundle_, "CheckBundle() from UpdateInterface: " + staged_, "integrity",
                   "identity", "Create Process Success! Waiting for process to complete.",
                   "Installer exit code:  1 - " + systemErrorPhrase(1), "Copying installer logs"}));
  EXPECT_EQ(logTagPrefix(), "");
  EXPECT_FALSE(FileUtils::exists(staged_));
  EXPECT_EQ(readFile(folder_.installerLog("dd_vcredist.log")), "kept");
}

TEST_F(InstallRequestTest, RunsNothingThatIsRefusedAndRecordsWhichCheckJudgedOrCouldNot) {
  const auto signer = [this](ProfileState profile) {
    with_.checkIdentity = [profile](auto&) {
      return IdentityResult{TrustResult::refused(5), Signer{"5e1f", "CN=Somebody"}, profile, 0, "HTTP 404"};
    };
  };
  FileHandle holder;
  const std::tuple<std::function<void()>, Status, std::string, std::string> cases[] = {
      {[&] { with_.openBundle = [](auto&) -> Result<FileHandle> { return SetLastError(0), failure(2U); }; },
       Status::Failed, "open failed: " + describeSystemError(2), secondLine(2)},
      {[&] { fs::resize_file(toPath(bundle_), 0x40000001); }, Status::Failed, "size refused: more than 1 GiB",
       "Provided bundle is too large."},
      {[&] { FileUtils::move(bundle_, bundle_ + "X"), bundle_ += "X"; }, Status::Failed,
       "extension refused: not \".exe\" in these letters", "Provided bundle has invalid extension."},
      {[&] { writeFile(staged_, "held"), holder = openForWriting(staged_); }, Status::Failed,
       "copy failed: " + describeSystemError(ERROR_FILE_EXISTS), secondLine(ERROR_FILE_EXISTS)},
      {[&] { holder.reset(), with_.checkIntegrity = [](auto&, auto&) { return TrustResult::refused(0); }; },
       Status::SignatureRefused, "integrity refused: " + describeSystemError(31), ""},
      {[&] { signer(ProfileState::Had); }, Status::SignerRefused,
       "identity refused: the signer's certificate is not on the list of approved ones", ""},
      {[&] { signer(ProfileState::NotHad); }, Status::SignerRefused,
       "identity failed: the list of approved certificates could not be had: HTTP 404", ""},
      {[&] { signer(ProfileState::NotAsked); }, Status::SignerRefused,
       "identity failed: " + describeSystemError(5), ""},
      {[&] { with_.checkPolicy = [](auto&) { return PolicyResult::refused("it is older"); }; },
       Status::SignerRefused, "policy refused: it is older", ""},
  };
  for (const auto& [arrange, status, decidingCheck, line] : cases) {
    begin();
    arrange();
    EXPECT_EQ(install(), status) << decidingCheck;
    EXPECT_EQ(record_.status, status);
    const auto decided =
        std::ranges::find_if(record_.checks, [](auto& one) { return one.verdict != "passed"; });
    EXPECT_EQ(decided->name + " " + decided->verdict + ": " + decided->detail, decidingCheck);
    EXPECT_EQ(record_.signerSubject, decided->name == "identity" ? "CN=Somebody" : "");
    EXPECT_TRUE(line.empty() || log_.contains(line)) << line;
  }
  EXPECT_FALSE(log_.contains("Create Process Success! Waiting for process to complete."));
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
  for (const auto& [path, code] : {std::pair(LR"(C:\missing.exe)", ERROR_FILE_NOT_FOUND),
                                   {LR"(\\.\NUL)", ERROR_BAD_PATHNAME},
                                   {LR"(\\.\pipe\zarn-nobody.exe)", ERROR_BAD_PATHNAME},
                                   {LR"(//./pipe/zarn-nobody.exe)", ERROR_BAD_PATHNAME},
                                   {LR"(\\nobody\share\bundle.exe)", ERROR_NETWORK_ACCESS_DENIED},
                                   {L"bundle.exe", ERROR_BAD_PATHNAME}}) {
    EXPECT_EQ(openBundle(path).error().code(), code) << "refused by its name";
    EXPECT_EQ(request.checkCallersBundle(path), Status::SignatureRefused);
    EXPECT_TRUE(log_.contains("Failed CreateFile() of " + StringUtils::utf16to8(path)));
  }
  EXPECT_FALSE(openBundle(wide(folder_.temp.path())));
  EXPECT_EQ(checked, (std::vector<std::wstring>{finalPath(file->get()).value(), wide(bundle_)}));
}

TEST_F(InstallRequestTest, RecordsThatAnInstallerCouldNotBeStarted) {
  writeFile(bundle_, "no program");
  EXPECT_EQ(install(), Status::Failed);
  EXPECT_EQ(std::tuple(exitCode_, record_.exitCode, record_.installerStarted),
            std::tuple(ERROR_BAD_EXE_FORMAT, std::optional<std::uint32_t>(ERROR_BAD_EXE_FORMAT),
                       std::optional(false)));
}

TEST_F(InstallRequestTest, AnExitCodeThatCannotBeReadIsAStatusOfItsOwn) {
  order(0);
  static HANDLE doubtful = nullptr;
  with_.runOptions.readExitCode = [](void* process) -> Result<std::uint32_t> {
    doubtful = process;
    SetLastError(0);
    return failure(ERROR_INVALID_HANDLE);
  };
  EXPECT_EQ(install(), Status::ExitCodeUnknown);
  EXPECT_EQ(exitCode_, 30003);
  EXPECT_FALSE(restarted_);
  const std::vector<LoggedLine> wanted = {{LogLevel::Error, "Failed to get exit code"},
                                          {LogLevel::Error, secondLine(ERROR_INVALID_HANDLE)}};
  EXPECT_THAT(log_.lines(), ::testing::IsSupersetOf(wanted));
  EXPECT_NE(GetProcessId(doubtful), 0U) << "a handle in doubt is not closed";
  CloseHandle(doubtful);
}

TEST_F(InstallRequestTest, NothingThatFailsAfterTheInstallerChangesTheAnswerAndRefusalsAreRecorded) {
  order(3010);
  with_.announce = [this](auto& record) -> std::shared_ptr<void> {
    EXPECT_EQ(std::pair(record.path, record.checks[0].verdict),
              std::pair(bundle_, std::string("not reached")));
    return {nullptr, [this](void*) { ended_ = true; }};
  };
  with_.record = [this](auto& record) {
    record_ = record;
    EXPECT_FALSE(ended_), throw std::bad_alloc();
  };
  with_.restart = [this] { restarted_ = true, throw std::runtime_error("the listener is gone"); };
  EXPECT_EQ(install(), Status::RebootRequired);
  EXPECT_EQ(exitCode_, 3010);
  EXPECT_TRUE(restarted_ && ended_);
  ended_ = false;
  with_.announce = [](auto&) -> std::shared_ptr<void> { throw std::bad_alloc(); };
  EXPECT_EQ(install(), Status::RebootRequired);

  // Who asked is recorded even of what is not begun.
  InstallRequest(with_).refuse({"S-1-5-7", {}, ""}, wide(bundle_), "too many requests wait");
  EXPECT_EQ(std::tuple(record_.caller.sid, record_.path, record_.reason, record_.status, record_.exitCode),
            std::tuple("S-1-5-7", bundle_, "The request was refused: too many requests wait.", Status::Failed,
                       std::nullopt));
}

TEST_F(InstallRequestTest, LeavesAnInstallerThatOutlastsTheWait) {
  static_assert(kInstallerWaitMilliseconds == 600'000);
  order(0, 1'000);
  EXPECT_EQ(RunInstaller(wide(bundle_), {.waitMilliseconds = 100}).code, 259U);
  EXPECT_EQ(log_.lines()[1], (LoggedLine{LogLevel::Error, "Wait for installer timed out."}));
  // It was not ended: its record comes when it has slept.
  for (int tries = 0; tries < 500 && readFile(commandLine_).empty(); ++tries) Sleep(20);
  EXPECT_EQ(readFile(commandLine_), bundle_ + " /quiet /norestart");
  while (DeleteFileW(wide(bundle_).c_str()) == 0 && GetLastError() == ERROR_ACCESS_DENIED) Sleep(20);
}

TEST_F(InstallRequestTest, WhatIsBeingStartedEndsWithItsMakerAndWhatWasStartedDoesNot) {
  for (const bool leaves : {false, true}) {
    order(0);
    setEnvironment("ZARN_HELPER", leaves ? "leave" : "launch");
    EXPECT_EQ(runProgram(ZARN_TEST_HELPER, {}).exitCode, 0U);
    const KernelHandle started(
        OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, std::stoul(readFile(commandLine_))));
    EXPECT_EQ(!started || WaitForSingleObject(started.get(), leaves ? 500 : 5'000) == WAIT_OBJECT_0, !leaves);
    if (started) TerminateProcess(started.get(), 0);
  }
}

TEST_F(InstallRequestTest, TheCopyEndsAtTheLimitAndIsOpenedByItsOnlyName) {
  writeFile(bundle_, std::string(5'000'000, 'x'));
  EXPECT_TRUE(copyBundle(wide(bundle_), wide(staged_), 5'000'000));
  EXPECT_EQ(FileUtils::fileSize(staged_), 5'000'000U);
  EXPECT_TRUE(openStagedCopy(wide(staged_)));
  const std::string secondName = folder_.appData / "second name";
  fs::create_hard_link(toPath(staged_), toPath(secondName));
  EXPECT_EQ(openStagedCopy(wide(staged_)).error(), SystemError::accessDenied());
  EXPECT_EQ(copyBundle(wide(bundle_), wide(staged_), 4'999'999).error().code(), ERROR_REQUEST_ABORTED);
  EXPECT_FALSE(FileUtils::exists(staged_));
  EXPECT_EQ(FileUtils::fileSize(secondName), 5'000'000U) << "nothing is written through a link";
}

}  // namespace
}  // namespace zarn::testing
