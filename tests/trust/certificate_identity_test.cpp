#include "trust/certificate_identity.h"

#include <gtest/gtest.h>

#include <numeric>

#include "failure_lines.h"
#include "scripted_trust_api.h"
#include "support/recording_log.h"

namespace zarn::testing {
namespace {

const std::string kDigest = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
const LoggedLine kRefused{LogLevel::Error, "Certificate couldn't be verified"};

std::vector<LoggedLine> subjectLines() {
  return {{LogLevel::Debug, "Certificate Common Name: Zarn \xC3\x9C\\x0a"},
          {LogLevel::Debug, "Certificate Organization Name: Zarn, Inc."},
          {LogLevel::Debug, "Certificate Locality Name: L"},
          {LogLevel::Debug, "Certificate State Name: "},
          {LogLevel::Debug, "Certificate Country Name: ZZ"}};
}

class CertificateIdentity : public ::testing::Test {
 protected:
  CertificateIdentity() {
    CarriedCertificate certificate{api_.signer, std::vector<std::uint8_t>(32), {}};
    std::iota(certificate.digest.begin(), certificate.digest.end(), std::uint8_t{0});
    certificate.subject = {{"2.5.4.3", L"Zarn \u00DC\n"},
                           {"2.5.4.10", L"Zarn, Inc."},
                           {"2.5.4.7", L"L"},
                           {"2.5.4.6", L"ZZ"},
                           {"2.5.4.5", L"never asked for"}};
    api_.carried.push_back(certificate);
  }

  TrustResult check(const std::set<std::string>& approved) {
    return CheckCertificateIdentity(api_, L"bundle.exe", [&] {
      api_.calls.emplace_back("fetch");
      return approved;
    });
  }

  ScriptedTrustApi api_;
  RecordingLog log_;
};

TEST_F(CertificateIdentity, AnApprovedSignerPassesAndNothingElseIsRead) {
  EXPECT_EQ(check({"x", kDigest}).code(), 0);
  EXPECT_EQ(log_.lines(), (std::vector<LoggedLine>{{LogLevel::Debug, "Certificate identity verified"}}));
  EXPECT_EQ(api_.calls, (std::vector<std::string>{"CryptQueryObject", "CryptMsgGetParam (size)",
                                                  "CryptMsgGetParam", "CertFindCertificateInStore",
                                                  "CryptHashCertificate (size)", "CryptHashCertificate",
                                                  "fetch", "free certificate", "close store and message"}));
}

TEST_F(CertificateIdentity, AnyOtherSignerIsRefusedAndDescribed) {
  std::string upperCase = kDigest;
  std::ranges::transform(upperCase, upperCase.begin(), [](char c) { return c >= 'a' ? char(c - 32) : c; });
  const std::set<std::string> notTheDigest = {upperCase, kDigest + " ", " " + kDigest, kDigest.substr(0, 63),
                                              ""};
  for (const auto& approved : {std::set<std::string>{}, notTheDigest}) {
    log_.clear();
    EXPECT_EQ(check(approved).code(), 30005);
    EXPECT_EQ(log_.lines(),
              join(join({{LogLevel::Debug, "Certificate hash: " + kDigest}}, subjectLines()), {kRefused}));
    EXPECT_EQ(api_.calls.back(), "close store and message");
  }
}

TEST_F(CertificateIdentity, AnApprovedCertificateMerelyCarriedAlongDoesNotHelp) {
  api_.carried.insert(api_.carried.begin(), {"CN=Zarn, 2", std::vector<std::uint8_t>(32, 0xAB), {}});
  std::string decoy;
  while (decoy.size() < 64) decoy += "ab";
  EXPECT_EQ(check({decoy}).code(), 30005);
  EXPECT_TRUE(log_.contains("Certificate hash: " + kDigest));
}

TEST_F(CertificateIdentity, AFailedCallBeforeTheDigestRefusesWhateverTheLastErrorIs) {
  const std::vector<std::pair<std::string, std::string>> steps = {
      {"CryptQueryObject", "CryptQueryObject() failed"},
      {"CryptMsgGetParam (size)", "CryptMsgGetParm() (Getting Size) failed"},
      {"CryptMsgGetParam", "CryptMsgGetParm() failed"},
      {"CertFindCertificateInStore", "CertFindCertificateInStore failed"}};
  for (const auto& [call, message] : steps) {
    for (const std::uint32_t lastError : {0U, 5U, 0x80092009U}) {
      SCOPED_TRACE(call + " " + std::to_string(lastError));
      log_.clear();
      api_.calls.clear();
      api_.failingCall = call;
      api_.failure = lastError;
      const TrustResult result = check({kDigest, ""});
      EXPECT_FALSE(result.isVerified());
      EXPECT_EQ(static_cast<std::uint32_t>(result.code()), lastError == 0 ? 31 : lastError);
      EXPECT_EQ(log_.lines(), failureLines(LogLevel::Debug, message, lastError));
      EXPECT_EQ(std::ranges::count(api_.calls, "fetch"), 0);
      EXPECT_EQ(api_.calls.back(), call == "CryptQueryObject" ? call : "close store and message");
    }
  }
}

TEST_F(CertificateIdentity, AFailedDigestIsEmptyAndNeverApproved) {
  const std::vector<std::pair<std::string, std::string>> steps = {
      {"CryptHashCertificate (size)", "CryptHashCertificate() (calculating output size) failed"},
      {"CryptHashCertificate", "CryptHashCertificate() failed"}};
  for (const auto& [call, message] : steps) {
    log_.clear();
    api_.failingCall = call;
    EXPECT_EQ(check({kDigest, "", std::string(64, '0')}).code(),
              30005);  // a malformed profile can hold empty text
    auto expected =
        join(failureLines(LogLevel::Debug, message, 0), {{LogLevel::Debug, "Certificate hash: "}});
    EXPECT_EQ(log_.lines(), join(join(expected, subjectLines()), {kRefused}));
  }
}

TEST_F(CertificateIdentity, AnUnreadableSubjectIsShownEmpty) {
  const std::vector<std::pair<std::string, std::string>> steps = {
      {"CertGetNameStringW (size)", "CertGetNameStringW() (Get size) failed"},
      {"CertGetNameStringW", "CertGetNameString() failed"}};
  for (const auto& [call, message] : steps) {
    log_.clear();
    api_.failingCall = call;
    EXPECT_EQ(check({}).code(), 30005);
    EXPECT_EQ(log_.count(message), 5);
    EXPECT_TRUE(log_.contains("Certificate Common Name: "));
    EXPECT_EQ(log_.lines().back(), kRefused);
  }
}

}  // namespace
}  // namespace zarn::testing
