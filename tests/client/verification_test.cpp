#include "client/tool/machine/verification.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_directory.h"
#include "trust/scripted_trust_api.h"

namespace zarn::tool {
namespace {

/// A system whose libraries fault on what a file holds.
struct FaultingApi final : TrustApi {
  static void fault() { RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr); }
  Result<std::unique_ptr<SignedFile>> openFile(const std::wstring& path) override {
    return script.openFile(path);
  }
  std::int32_t verifyTrust(const std::wstring& path) override {
    if (faultsEarly) fault();
    return script.verifyTrust(path);
  }
  Result<std::unique_ptr<EmbeddedSignature>> querySignature(const std::wstring& /*path*/) override {
    fault();
    return failure(1);
  }
  bool faultsEarly = false;  // in the first of the two checks
  testing::ScriptedTrustApi script;
};

TEST(Verification, AnswersAsAnInstallWouldThatGotNoFurther) {
  static const CapturedLog log;  // stays the process's log
  const testing::TempDirectory directory;
  const auto path = FileUtils::toPath(directory / "a.exe");
  const auto expectFirstVerdict = [&](std::size_t step, const char* verdict) {
    const VerificationReport report = verifyBundle(path.native(), log);
    EXPECT_EQ(report.status, Status::Failed);
    for (std::size_t i = 0; i < report.steps.size(); ++i)
      EXPECT_EQ(report.steps[i].verdict, i < step ? "passed" : i == step ? verdict : "not reached");
  };
  expectFirstVerdict(0, "failed");
  testing::writeFile(directory / "a.exe", "x");
  boost::filesystem::resize_file(path, static_cast<std::uintmax_t>(kMaximumBundleBytes) + 1);
  expectFirstVerdict(1, "refused");
}

TEST(Verification, AFaultInsideTheSystemIsAFailureOfItsCheck) {
  static const CapturedLog log;  // stays the process's log
  const testing::TempDirectory directory;
  const std::string bundle = directory / "a.exe";
  testing::writeFile(bundle, "x");
  for (const bool faultsEarly : {true, false}) {
    FaultingApi api;
    api.faultsEarly = faultsEarly;
    const auto report = verifyBundle(FileUtils::toPath(bundle).native(), log, api);
    EXPECT_EQ(report.status, faultsEarly ? Status::SignatureRefused : Status::SignerRefused);
    const CheckRecord& step = report.steps.at(faultsEarly ? 3 : 4);
    EXPECT_EQ(step.verdict + ": " + step.detail, "failed: the check failed inside the system: 0xc0000005");
    EXPECT_FALSE(report.signer);
    EXPECT_THAT(report.log, ::testing::Contains(::testing::HasSubstr("Checking Certificate of installer")));
  }
}

}  // namespace
}  // namespace zarn::tool
