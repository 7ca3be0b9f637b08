// Both checks against an operating system that does as told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <numeric>

#include "scripted_trust_api.h"
#include "support/recording_log.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

const std::string kDigest = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

class TrustChecks : public ::testing::Test {
 protected:
  TrustChecks() {
    std::vector<std::uint8_t> digest(32);
    std::iota(digest.begin(), digest.end(), std::uint8_t{0});
    api_.carried = {
        {api_.signerOfMessage,
         digest,
         {{"2.5.4.3", L"Zarn \u00DC\n"}, {"2.5.4.10", L"Zarn, Inc."}, {"2.5.4.7", L"L"}, {"2.5.4.6", L"Z"}}}};
  }

  TrustResult integrity() { return CheckCertificateIntegrity(api_, L"a\nb.exe"); }
  IdentityResult check(const std::optional<ApprovedDigests>& approved) {
    return CheckCertificateIdentity(api_, L"a\nb.exe", [&] {
      api_.calls.emplace_back("fetch");
      return approved;
    });
  }
  TrustResult identity(const ApprovedDigests& approved) { return check(approved).result; }
  void startFailing(const std::string& call, std::uint32_t lastError = 0) {
    api_.failingCall = call;
    api_.failure = lastError;
    api_.calls.clear();
    log_.clear();
  }

  ScriptedTrustApi api_;
  RecordingLog log_;
};

TEST_F(TrustChecks, WhatIsRightPassesAndEverythingIsReleasedLast) {
  EXPECT_TRUE(integrity().isVerified());
  EXPECT_THAT(api_.calls, ElementsAre("CreateFileW", "ImageGetCertificateHeader", "ImageGetCertificateData",
                                      "WinVerifyTrust", "release"));
  api_.calls.clear();
  EXPECT_TRUE(identity({"x", kDigest}).isVerified());
  std::erase_if(api_.calls, [](const auto& call) { return call.starts_with("CertGetNameStringW"); });
  EXPECT_THAT(api_.calls, ElementsAre("CryptQueryObject", "CryptMsgGetParam (size)", "CryptMsgGetParam",
                                      "CertFindCertificateInStore", "CryptHashCertificate (size)",
                                      "CryptHashCertificate", "fetch", "release", "release"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(LoggedLine{LogLevel::Debug, "Checking Certificate of installer: a\\x0ab.exe"},
                          LoggedLine{LogLevel::Debug, "Certificate integrity verified"},
                          LoggedLine{LogLevel::Debug, "Certificate identity verified"}));
}

TEST_F(TrustChecks, AnyFailedCallRefusesWhateverTheLastErrorIs) {
  const std::tuple<bool, std::string, std::string> steps[] = {
      {true, "CreateFileW", "Failed CreateFile() of a\\x0ab.exe"},
      {true, "ImageGetCertificateHeader", "ImageGetCertificateHeader() failed"},
      {true, "ImageGetCertificateData", "ImageGetCertificateData() failed"},
      {false, "CryptQueryObject", "CryptQueryObject() failed"},
      {false, "CryptMsgGetParam (size)", "CryptMsgGetParm() (Getting Size) failed"},
      {false, "CryptMsgGetParam", "CryptMsgGetParm() failed"},
      {false, "CertFindCertificateInStore", "CertFindCertificateInStore failed"},
  };
  for (const auto& [checksIntegrity, call, message] : steps) {
    for (const std::uint32_t lastError : {0U, 5U, 0x80092009U}) {
      SCOPED_TRACE(call + " " + std::to_string(lastError));
      startFailing(call, lastError);
      const TrustResult result = checksIntegrity ? integrity() : identity({kDigest, ""});
      EXPECT_EQ(static_cast<std::uint32_t>(result.code()), lastError == 0 ? 31 : lastError);
      EXPECT_TRUE(log_.contains(message));
      if (api_.calls.size() > 1) {
        EXPECT_EQ(api_.calls.back(), "release");
        api_.calls.pop_back();
      }
      EXPECT_EQ(api_.calls.back(), call);
    }
  }
}

TEST_F(TrustChecks, TheLogShowsTheCallersWordsWhateverTheFileIsCalled) {
  const auto announced = [&] { return log_.contains("Checking Certificate of installer: words\\x0a"); };
  EXPECT_TRUE(CheckCertificateIntegrity(api_, L"real.exe", L"words\n").isVerified());
  EXPECT_EQ(api_.paths, std::set<std::wstring>{L"real.exe"});
  EXPECT_TRUE(announced());
  for (const std::uint32_t error : {2U, 0U}) {
    startFailing("CreateFileW", error);
    EXPECT_EQ(CheckCertificateIntegrity(api_, L"real.exe", L"words\n").code(), error == 0 ? 31 : 2);
    const auto failure = log_.texts();
    startFailing("");
    EXPECT_EQ(integrityOfUnopened(L"words\n", error).code(), error == 0 ? 31 : 2);
    EXPECT_TRUE(announced());
    EXPECT_EQ(log_.texts(), failure);
    EXPECT_TRUE(log_.contains("Failed CreateFile() of words\\x0a"));
    EXPECT_THAT(api_.calls, ElementsAre());
  }
}

TEST_F(TrustChecks, TheProvidersStatusIsTheResultAndAnError) {
  startFailing("WinVerifyTrust");
  api_.trustStatus = static_cast<std::int32_t>(0x800b010cU);  // a certificate was revoked
  EXPECT_EQ(integrity().code(), api_.trustStatus);
  const LoggedLine line{LogLevel::Error, "Certificate couldn't be verified with the following error:"};
  EXPECT_THAT(log_.lines(), ::testing::Contains(line));
}

TEST_F(TrustChecks, AnyOtherSignerIsRefusedAndDescribed) {
  const std::set<std::string> nearly = {boost::to_upper_copy(kDigest), kDigest + " ", kDigest.substr(0, 63),
                                        ""};
  EXPECT_EQ(identity(nearly).code(), 30005);
  EXPECT_THAT(log_.texts(),
              ElementsAre("Certificate hash: " + kDigest, "Certificate Common Name: Zarn \xC3\x9C\\x0a",
                          "Certificate Organization Name: Zarn, Inc.", "Certificate Locality Name: L",
                          "Certificate State Name: ", "Certificate Country Name: Z",
                          "Certificate couldn't be verified"));
  EXPECT_EQ(identity({}).code(), 30005);
  // An approved certificate that is merely carried along does not help.
  api_.carried.insert(api_.carried.begin(), {"CN=Zarn, 2", {0xAB, 0x0A}, {}});
  EXPECT_EQ(identity({"ab0a"}).code(), 30005);
}

TEST_F(TrustChecks, WhatCannotBeReadIsEmptyAndNeverApproved) {
  const std::pair<std::string, std::string> steps[] = {
      {"CryptHashCertificate (size)", "CryptHashCertificate() (calculating output size) failed"},
      {"CryptHashCertificate", "CryptHashCertificate() failed"},
      {"CertGetNameStringW (size)", "CertGetNameStringW() (Get size) failed"},
      {"CertGetNameStringW", "CertGetNameString() failed"}};
  for (const auto& [call, message] : steps) {
    startFailing(call);
    EXPECT_EQ(identity({"", std::string(64, '0')}).code(), 30005);  // a malformed profile can hold empty text
    EXPECT_TRUE(log_.contains(message));
    EXPECT_TRUE(log_.contains("Certificate hash: ") || log_.contains("Certificate Common Name: "));
  }
}

TEST_F(TrustChecks, TheAnswerNamesTheSignerAndTellsAnEmptyProfileFromNone) {
  // Who is merely carried along is never named.
  api_.carried.insert(api_.carried.begin(), {"CN=Decoy, 2", {0xFF}, {{"2.5.4.3", L"Decoy"}}});
  const struct {
    std::string failing;
    std::optional<ApprovedDigests> approved;
    std::optional<std::string> digest;
    ProfileState profile;
  } table[] = {{"", ApprovedDigests{kDigest, "x"}, kDigest, ProfileState::Had},
               {"", ApprovedDigests{}, kDigest, ProfileState::Had},
               {"", std::nullopt, kDigest, ProfileState::NotHad},
               {"CryptHashCertificate", ApprovedDigests{""}, "", ProfileState::Had},
               {"CertFindCertificateInStore", ApprovedDigests{""}, std::nullopt, ProfileState::NotAsked}};
  for (const auto& [failing, approved, digest, profile] : table) {
    startFailing(failing);
    const IdentityResult answer = check(approved);
    EXPECT_EQ(answer.result.isVerified(), approved && approved->contains(kDigest));
    EXPECT_EQ(answer.profile, profile);
    EXPECT_EQ(answer.approvedDigests, profile == ProfileState::Had ? approved->size() : 0);
    ASSERT_EQ(answer.signer.has_value(), digest.has_value());
    if (!digest) continue;
    EXPECT_EQ(answer.signer->digest, *digest);
    EXPECT_EQ(answer.signer->subject, "CN=Zarn \xC3\x9C\n, O=Zarn, Inc., L=L, C=Z");
  }
}

}  // namespace
}  // namespace zarn::testing
