// Both checks against an operating system that does as told.
#include <gtest/gtest.h>

#include <numeric>

#include "scripted_trust_api.h"
#include "support/recording_log.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/signer_observer.h"

namespace zarn::testing {
namespace {

using Lines = std::vector<LoggedLine>;
using Steps = std::vector<std::pair<std::string, std::string>>;  // call and the line of its failure

constexpr std::uint32_t kLastErrors[] = {0, 5, 0x80092009};
const std::string kDigest = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

/// The two lines that a failed system call leaves in the log.
Lines failed(LogLevel level, const std::string& message, std::uint32_t lastError) {
  const auto shown = std::to_string(static_cast<std::int32_t>(lastError));
  return {{level, message}, {level, "    Win32 Error: " + shown + " " + systemErrorText(lastError)}};
}

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

class TrustChecks : public ::testing::Test {
 protected:
  TrustChecks() {
    api_.carried = {
        {api_.signerOfMessage,
         std::vector<std::uint8_t>(32),
         {{"2.5.4.3", L"Zarn \u00DC\n"}, {"2.5.4.10", L"Zarn, Inc."}, {"2.5.4.7", L"L"}, {"2.5.4.6", L"Z"}}}};
    std::iota(api_.carried[0].digest.begin(), api_.carried[0].digest.end(), std::uint8_t{0});
  }

  TrustResult integrity() { return CheckCertificateIntegrity(api_, L"bundle.exe"); }

  TrustResult identity(const std::set<std::string>& approved) {
    return CheckCertificateIdentity(api_, L"bundle.exe", [&] {
      api_.calls.emplace_back("fetch");
      return approved;
    });
  }

  void start(const std::string& failingCall, std::uint32_t lastError = 0) {
    api_.failingCall = failingCall;
    api_.failure = lastError;
    api_.calls.clear();
    log_.clear();
  }

  static Lines refusedAs(const std::string& digest) {
    return {{LogLevel::Debug, "Certificate hash: " + digest},
            {LogLevel::Debug, "Certificate Common Name: Zarn \xC3\x9C\\x0a"},
            {LogLevel::Debug, "Certificate Organization Name: Zarn, Inc."},
            {LogLevel::Debug, "Certificate Locality Name: L"},
            {LogLevel::Debug, "Certificate State Name: "},
            {LogLevel::Debug, "Certificate Country Name: Z"},
            {LogLevel::Error, "Certificate couldn't be verified"}};
  }

  const Lines checking_ = {{LogLevel::Debug, "Checking Certificate of installer: bundle.exe"}};
  ScriptedTrustApi api_;
  RecordingLog log_;
};

TEST_F(TrustChecks, WhatIsRightPassesAndEverythingIsReleasedLast) {
  EXPECT_TRUE(integrity().isVerified());
  EXPECT_EQ(api_.calls, (std::vector<std::string>{"CreateFileW", "ImageGetCertificateHeader",
                                                  "ImageGetCertificateData", "WinVerifyTrust", "close"}));
  EXPECT_EQ(log_.lines(), (checking_ + Lines{{LogLevel::Debug, "Certificate integrity verified"}}));

  start("");
  EXPECT_TRUE(identity({"x", kDigest}).isVerified());
  EXPECT_EQ(api_.calls,
            (std::vector<std::string>{"CryptQueryObject", "CryptMsgGetParam (size)", "CryptMsgGetParam",
                                      "CertFindCertificateInStore", "CryptHashCertificate (size)",
                                      "CryptHashCertificate", "fetch", "free", "close"}));
  EXPECT_EQ(log_.lines(), (Lines{{LogLevel::Debug, "Certificate identity verified"}}));
}

TEST_F(TrustChecks, AnyFailedCallRefusesWhateverTheLastErrorIs) {
  const Steps integritySteps = {{"CreateFileW", "Failed CreateFile() of bundle.exe"},
                                {"ImageGetCertificateHeader", "ImageGetCertificateHeader() failed"},
                                {"ImageGetCertificateData", "ImageGetCertificateData() failed"}};
  const Steps identitySteps = {{"CryptQueryObject", "CryptQueryObject() failed"},
                               {"CryptMsgGetParam (size)", "CryptMsgGetParm() (Getting Size) failed"},
                               {"CryptMsgGetParam", "CryptMsgGetParm() failed"},
                               {"CertFindCertificateInStore", "CertFindCertificateInStore failed"}};
  const auto expectRefused = [&](const Steps& steps, const Lines& before, const auto& check) {
    for (const auto& [call, message] : steps) {
      for (const std::uint32_t lastError : kLastErrors) {
        SCOPED_TRACE(call + " " + std::to_string(lastError));
        start(call, lastError);
        const TrustResult result = check();
        EXPECT_FALSE(result.isVerified());
        EXPECT_EQ(static_cast<std::uint32_t>(result.code()), lastError == 0 ? 31 : lastError);
        EXPECT_EQ(log_.lines(), before + failed(LogLevel::Debug, message, lastError));
        if (call != steps[0].first) {
          EXPECT_EQ(api_.calls.back(), "close");
          api_.calls.pop_back();
        }
        EXPECT_EQ(api_.calls.back(), call);
      }
    }
  };
  expectRefused(integritySteps, checking_, [&] { return integrity(); });
  expectRefused(identitySteps, {}, [&] { return identity({kDigest, ""}); });
}

TEST_F(TrustChecks, TheProvidersStatusIsTheResultAndAnError) {
  for (const std::uint32_t lastError : kLastErrors) {
    start("WinVerifyTrust", lastError);
    api_.trustStatus = static_cast<std::int32_t>(0x800b010cU);  // a certificate was revoked
    EXPECT_EQ(integrity().code(), api_.trustStatus);
    EXPECT_EQ(log_.lines(),
              checking_ + failed(LogLevel::Error,
                                 "Certificate couldn't be verified with the following error:", lastError));
  }
}

TEST_F(TrustChecks, AnyOtherSignerIsRefusedAndDescribed) {
  std::string upperCase = kDigest;
  std::ranges::transform(upperCase, upperCase.begin(),
                         [](char c) { return c >= 'a' ? static_cast<char>(c - 32) : c; });
  EXPECT_EQ(identity({upperCase, kDigest + " ", " " + kDigest, kDigest.substr(0, 63), ""}).code(), 30005);
  EXPECT_EQ(log_.lines(), refusedAs(kDigest));
  EXPECT_EQ(api_.calls.back(), "close");
  EXPECT_EQ(identity({}).code(), 30005);
}

TEST_F(TrustChecks, AnApprovedCertificateMerelyCarriedAlongDoesNotHelp) {
  api_.carried.insert(api_.carried.begin(), {"CN=Zarn, 2", {0xAB, 0x0A}, {}});
  EXPECT_EQ(identity({"ab0a"}).code(), 30005);
  EXPECT_EQ(log_.lines(), refusedAs(kDigest));
}

TEST_F(TrustChecks, AFailedDigestIsEmptyAndNeverApproved) {
  for (const auto& [call, message] :
       Steps{{"CryptHashCertificate (size)", "CryptHashCertificate() (calculating output size) failed"},
             {"CryptHashCertificate", "CryptHashCertificate() failed"}}) {
    start(call);
    EXPECT_EQ(identity({"", std::string(64, '0')}).code(), 30005);  // a malformed profile can hold empty text
    EXPECT_EQ(log_.lines(), failed(LogLevel::Debug, message, 0) + refusedAs(""));
  }
}

TEST_F(TrustChecks, AnUnreadableSubjectIsShownEmpty) {
  for (const auto& [call, message] :
       Steps{{"CertGetNameStringW (size)", "CertGetNameStringW() (Get size) failed"},
             {"CertGetNameStringW", "CertGetNameString() failed"}}) {
    start(call);
    EXPECT_EQ(identity({}).code(), 30005);
    EXPECT_EQ(log_.count(message), 5);
    EXPECT_TRUE(log_.contains("Certificate Common Name: "));
  }
}

TEST_F(TrustChecks, ThePathCannotForgeALogLine) {
  start("CreateFileW");
  EXPECT_FALSE(CheckCertificateIntegrity(api_, L"a\nb").isVerified());
  EXPECT_EQ(log_.texts()[0], "Checking Certificate of installer: a\\x0ab");
  EXPECT_EQ(log_.texts()[1], "Failed CreateFile() of a\\x0ab");
}

TEST_F(TrustChecks, AnObserverNamesTheSignerAndNotWhoIsMerelyCarriedAlong) {
  api_.carried.insert(api_.carried.begin(), {"CN=Decoy, 2", {0xFF}, {{"2.5.4.3", L"Decoy"}}});
  for (const char* failing : {"", "CryptHashCertificate"}) {
    start(failing);
    SignerObserver observer(api_);
    EXPECT_FALSE(observer.signer());
    EXPECT_NE(CheckCertificateIdentity(observer, L"x.exe", [] { return std::set<std::string>{""}; }).code(),
              0);
    ASSERT_TRUE(observer.signer());
    EXPECT_EQ(observer.signer()->digest, *failing == '\0' ? kDigest : "");
    EXPECT_EQ(observer.signer()->subject, "CN=Zarn \xC3\x9C\n, O=Zarn, Inc., L=L, C=Z");
  }
}

}  // namespace
}  // namespace zarn::testing
