#include "client/tool/verification_win.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/update_client.h"
#include "support/temp_directory.h"

namespace zarn::tool {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

/// A system whose libraries fault on what the file holds.
struct FaultingApi final : TrustApi {
  struct File final : SignedFile {
    Result<std::uint32_t> certificateLength() override { return 8; }
    Result<void> readCertificate(std::uint32_t /*length*/) override { return {}; }
  };
  explicit FaultingApi(bool providerFaults) : trustProviderFaults(providerFaults) {}
  static void writeNull() {
    static int* volatile nowhere = nullptr;
    *nowhere = 1;
  }
  Result<std::unique_ptr<SignedFile>> openFile(const std::wstring& /*path*/) override {
    return std::make_unique<File>();
  }
  std::int32_t verifyTrust(const std::wstring& /*path*/) override {
    if (trustProviderFaults) writeNull();
    return 0;
  }
  Result<std::unique_ptr<EmbeddedSignature>> querySignature(const std::wstring& /*path*/) override {
    writeNull();
    return failure(1);
  }
  bool trustProviderFaults;  // else the query of the signature does
};

TEST(Verification, AFaultInsideTheSystemIsAFailureOfItsCheck) {
  static const CapturedLog log;  // stays the process's log
  const testing::TempDirectory directory;
  testing::writeFile(directory / "a.exe", "x");
  for (const auto& [trustProviderFaults, stepNumber, status] :
       {std::tuple{true, 3U, client::kSignatureRefused}, {false, 4U, client::kSignerRefused}}) {
    FaultingApi api(trustProviderFaults);
    Verification verification(FileUtils::toPath(directory / "a.exe").native(), log, api);
    EXPECT_EQ(verification.run(), status);
    const Step& step = verification.steps().at(stepNumber);
    EXPECT_STREQ(step.verdict, "failed");
    EXPECT_EQ(step.detail, "the check failed inside the system: 0xc0000005");
    EXPECT_FALSE(verification.signer());
  }
  EXPECT_THAT(log.lines(), Contains(HasSubstr("Checking Certificate of installer"))) << "kept";
}

}  // namespace
}  // namespace zarn::tool
