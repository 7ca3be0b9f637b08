#include "trust/certificate_integrity.h"

#include <gtest/gtest.h>

#include "failure_lines.h"
#include "scripted_trust_api.h"
#include "support/recording_log.h"

namespace zarn::testing {
namespace {

const std::vector<std::string> kCalls = {"CreateFileW", "ImageGetCertificateHeader",
                                         "ImageGetCertificateData", "WinVerifyTrust"};
const LoggedLine kFirstLine{LogLevel::Debug, "Checking Certificate of installer: bundle.exe"};

TEST(CertificateIntegrity, HoldsTheFileUntilTheProviderHasAnswered) {
  const RecordingLog log;
  ScriptedTrustApi api;
  const TrustResult result = CheckCertificateIntegrity(api, L"bundle.exe");
  EXPECT_TRUE(result.isVerified());
  EXPECT_EQ(result.code(), 0);
  auto expected = kCalls;
  expected.emplace_back("close file");
  EXPECT_EQ(api.calls, expected);
  EXPECT_EQ(log.lines(),
            (std::vector<LoggedLine>{kFirstLine, {LogLevel::Debug, "Certificate integrity verified"}}));
}

TEST(CertificateIntegrity, AnyFailedCallRefusesWhateverTheLastErrorIs) {
  const std::vector<std::string> messages = {"Failed CreateFile() of bundle.exe",
                                             "ImageGetCertificateHeader() failed",
                                             "ImageGetCertificateData() failed"};
  for (std::size_t step = 0; step < messages.size(); ++step) {
    for (const std::uint32_t lastError : {0U, 5U, 0x80092009U}) {
      SCOPED_TRACE(kCalls[step] + " " + std::to_string(lastError));
      const RecordingLog log;
      ScriptedTrustApi api;
      api.failingCall = kCalls[step];
      api.failure = lastError;
      const TrustResult result = CheckCertificateIntegrity(api, L"bundle.exe");
      EXPECT_FALSE(result.isVerified());
      EXPECT_EQ(static_cast<std::uint32_t>(result.code()), lastError == 0 ? 31 : lastError);
      EXPECT_EQ(log.lines(), join({kFirstLine}, failureLines(LogLevel::Debug, messages[step], lastError)));
      EXPECT_EQ(api.calls.size(), step == 0 ? 1 : step + 2);  // those up to the failed one, and the close
      EXPECT_EQ(api.calls.back(), step == 0 ? "CreateFileW" : "close file");
    }
  }
}

TEST(CertificateIntegrity, TheProvidersStatusIsTheResult) {
  for (const std::uint32_t lastError : {0U, 0x800b010cU}) {
    const RecordingLog log;
    ScriptedTrustApi api;
    api.failingCall = "WinVerifyTrust";
    api.failure = lastError;
    api.trustStatus = static_cast<std::int32_t>(0x800b010cU);  // a certificate was revoked
    const TrustResult result = CheckCertificateIntegrity(api, L"bundle.exe");
    EXPECT_EQ(result.code(), api.trustStatus);
    EXPECT_EQ(log.lines(),
              join({kFirstLine},
                   failureLines(LogLevel::Error,
                                "Certificate couldn't be verified with the following error:", lastError)));
  }
}

TEST(CertificateIntegrity, ThePathCannotForgeALogLine) {
  const RecordingLog log;
  ScriptedTrustApi api;
  api.failingCall = "CreateFileW";
  EXPECT_FALSE(CheckCertificateIntegrity(api, L"a\nCertificate integrity verified").isVerified());
  const auto texts = log.texts();
  EXPECT_EQ(texts[0], "Checking Certificate of installer: a\\x0aCertificate integrity verified");
  EXPECT_EQ(texts[1], "Failed CreateFile() of a\\x0aCertificate integrity verified");
}

}  // namespace
}  // namespace zarn::testing
