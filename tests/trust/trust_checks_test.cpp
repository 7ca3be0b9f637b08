// Both checks against an operating system that does as told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <numeric>

#include "scripted_trust_api.h"
#include "support/recording_log.h"
#include "trust/certificate_identity.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

const std::string kImageDigest = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

class TrustChecks : public ::testing::Test {
 protected:
  TrustChecks() {
    std::vector<std::uint8_t> digest(32);
    std::iota(digest.begin(), digest.end(), std::uint8_t{0});
    api_.carried = {
        {"CN=Decoy, 2", {0xAB, 0x0A}, {{"2.5.4.3", L"Decoy"}}},
        {api_.signerOfMessage,
         digest,
         {{"2.5.4.3", L"Zarn \u00DC\n"}, {"2.5.4.10", L"Zarn, Inc."}, {"2.5.4.7", L"L"}, {"2.5.4.6", L"Z"}}}};
  }

  TrustResult integrity() { return CheckCertificateIntegrity(api_, L"a\nb.exe"); }
  IdentityResult identity(const std::optional<ApprovedDigests>& approved) {
    return CheckCertificateIdentity(api_, L"a\nb.exe", [&] {
      api_.calls.emplace_back("fetch");
      return approved;
    });
  }
  void startFailing(const std::string& call, std::uint32_t error = 1) {
    api_.failingCall = call;
    api_.error = SystemError(error);
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
  EXPECT_TRUE(identity({{"x", kImageDigest}}).result.isVerified());
  std::erase_if(api_.calls, [](const auto& call) { return call.starts_with("CertGetNameStringW"); });
  EXPECT_THAT(api_.calls, ElementsAre("CryptQueryObject", "CryptMsgGetParam (size)", "CryptMsgGetParam",
                                      "CertFindCertificateInStore", "CryptHashCertificate (size)",
                                      "CryptHashCertificate", "fetch", "release", "release"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(LoggedLine{LogLevel::Debug, "Checking Certificate of installer: a\\x0ab.exe"},
                          LoggedLine{LogLevel::Debug, "Certificate integrity verified"},
                          LoggedLine{LogLevel::Debug, "Certificate identity verified"}));
}

TEST_F(TrustChecks, AnyFailedCallRefusesAndIsLoggedWithItsError) {
  api_.trustStatus = static_cast<std::int32_t>(0x800b010cU);  // a certificate was revoked
  enum class Ends { Integrity, Identity, Nothing };
  const std::tuple<Ends, std::string, std::string> steps[] = {
      {Ends::Integrity, "CreateFileW", "Failed CreateFile() of a\\x0ab.exe"},
      {Ends::Integrity, "ImageGetCertificateHeader", "ImageGetCertificateHeader() failed"},
      {Ends::Integrity, "ImageGetCertificateData", "ImageGetCertificateData() failed"},
      {Ends::Integrity, "WinVerifyTrust", "Certificate couldn't be verified with the following error:"},
      {Ends::Identity, "CryptQueryObject", "CryptQueryObject() failed"},
      {Ends::Identity, "CryptMsgGetParam (size)", "CryptMsgGetParm() (Getting Size) failed"},
      {Ends::Identity, "CryptMsgGetParam", "CryptMsgGetParm() failed"},
      {Ends::Identity, "CertFindCertificateInStore", "CertFindCertificateInStore failed"},
      {Ends::Nothing, "CryptHashCertificate (size)",
       "CryptHashCertificate() (calculating output size) failed"},
      {Ends::Nothing, "CryptHashCertificate", "CryptHashCertificate() failed"},
      {Ends::Nothing, "CertGetNameStringW (size)", "CertGetNameStringW() (Get size) failed"},
      {Ends::Nothing, "CertGetNameStringW", "CertGetNameString() failed"}};
  for (const auto& [ends, call, message] : steps) {
    for (const std::uint32_t error : {0U, 5U, 0x80092009U}) {
      SCOPED_TRACE(call + " " + std::to_string(error));
      startFailing(call, error);
      // A malformed profile can hold empty text.
      const TrustResult result = ends == Ends::Integrity ? integrity() : identity(ApprovedDigests{""}).result;
      const bool isProviders = call == "WinVerifyTrust";
      EXPECT_EQ(result.code(), isProviders             ? api_.trustStatus
                               : ends == Ends::Nothing ? 30005
                                                       : static_cast<std::int32_t>(failureCode(error)));
      const auto lines = log_.lines();
      const auto line = std::ranges::find(lines, message, &LoggedLine::text);
      ASSERT_LT(line - lines.begin() + 1, lines.end() - lines.begin());
      EXPECT_EQ(line->level, isProviders ? LogLevel::Error : LogLevel::Debug);
      EXPECT_TRUE(line[1].text.starts_with(
          "    Win32 Error: " + std::to_string(static_cast<std::int32_t>(error)) + " "));
      const std::string read =
          call.starts_with("CryptHash") ? "Certificate hash: " : "Certificate Common Name: ";
      EXPECT_EQ(log_.contains(read), ends == Ends::Nothing);
      if (ends == Ends::Nothing || api_.calls.size() == 1) continue;
      EXPECT_THAT(std::vector(api_.calls.end() - 2, api_.calls.end()), ElementsAre(call, "release"));
    }
  }
}

TEST_F(TrustChecks, TheLogShowsTheCallersWordsWhateverTheFileIsCalled) {
  const std::string announced = "Checking Certificate of installer: words\\x0a";
  EXPECT_TRUE(CheckCertificateIntegrity(api_, L"real.exe", L"words\n").isVerified());
  EXPECT_EQ(api_.paths, std::set<std::wstring>{L"real.exe"});
  EXPECT_TRUE(log_.contains(announced));
  startFailing("CreateFileW", 2);
  EXPECT_EQ(CheckCertificateIntegrity(api_, L"real.exe", L"words\n").code(), 2);
  const auto texts = log_.texts();
  EXPECT_EQ(texts.front(), announced);
  EXPECT_EQ(texts.at(1), "Failed CreateFile() of words\\x0a");
  log_.clear();
  EXPECT_EQ(integrityOfUnopened(L"words\n", 2).code(), 2);
  EXPECT_EQ(log_.texts(), texts);
  EXPECT_EQ(integrityOfUnopened(L"words\n", 0).code(), 31);
}

TEST_F(TrustChecks, AnyOtherSignerIsRefusedAndDescribed) {
  // The last one is carried along, and made no signature.
  const ApprovedDigests nearly = {boost::to_upper_copy(kImageDigest), kImageDigest + " ",
                                  kImageDigest.substr(0, 63), "ab0a"};
  EXPECT_EQ(identity(nearly).result.code(), 30005);
  EXPECT_THAT(log_.texts(),
              ElementsAre("Certificate hash: " + kImageDigest, "Certificate Common Name: Zarn \xC3\x9C\\x0a",
                          "Certificate Organization Name: Zarn, Inc.", "Certificate Locality Name: L",
                          "Certificate State Name: ", "Certificate Country Name: Z",
                          "Certificate couldn't be verified"));
  EXPECT_EQ(log_.lines().back().level, LogLevel::Error);
}

TEST_F(TrustChecks, TheAnswerNamesTheSignerAndTellsAnEmptyProfileFromNone) {
  const std::tuple<const char*, std::optional<ApprovedDigests>, const char*, ProfileState> table[] = {
      {"", ApprovedDigests{kImageDigest, "x"}, kImageDigest.c_str(), ProfileState::Had},
      {"", ApprovedDigests{}, kImageDigest.c_str(), ProfileState::Had},
      {"", std::nullopt, kImageDigest.c_str(), ProfileState::NotHad},
      {"CryptHashCertificate", ApprovedDigests{""}, "", ProfileState::Had},
      {"CertFindCertificateInStore", ApprovedDigests{kImageDigest}, nullptr, ProfileState::NotAsked}};
  for (const auto& [failing, approved, digest, profile] : table) {
    startFailing(failing);
    const IdentityResult answer = identity(approved);
    EXPECT_EQ(answer.result.isVerified(), digest != nullptr && approved && approved->contains(kImageDigest));
    EXPECT_EQ(answer.profile, profile);
    EXPECT_EQ(answer.approvedDigests, profile == ProfileState::Had ? approved->size() : 0);
    ASSERT_EQ(answer.signer.has_value(), digest != nullptr);
    if (digest == nullptr) continue;
    EXPECT_EQ(answer.signer->digest, digest);
    EXPECT_EQ(answer.signer->subject, "CN=Zarn \xC3\x9C\n, O=Zarn, Inc., L=L, C=Z");
  }
}

}  // namespace
}  // namespace zarn::testing
