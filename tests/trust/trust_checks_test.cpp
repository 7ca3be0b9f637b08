// Both checks against an operating system that does as told.
#include <fmt/ranges.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <numeric>

#include "scripted_trust_api.h"
#include "support/test.h"
#include "trust/certificate_identity.h"

namespace zarn::testing {
namespace {

const std::string kImageDigest = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

struct TrustChecks : ::testing::Test {
  TrustChecks() {
    std::vector<std::uint8_t> digest(32);
    std::iota(digest.begin(), digest.end(), std::uint8_t{0});
    api_.carried["CN=Decoy, 2"] = {{0xAB, 0x0A}, {{"2.5.4.3", L"Decoy"}}};
    api_.carried[api_.signerOfMessage] = {
        digest,
        {{"2.5.4.3", L"Zarn \u00DC\n"}, {"2.5.4.10", L"Zarn, Inc."}, {"2.5.4.7", L"L"}, {"2.5.4.6", L"Z"}}};
  }

  TrustResult integrity() { return CheckCertificateIntegrity(api_, L"real.exe", L"a\nb.exe"); }
  IdentityResult identity(const std::optional<ApprovedDigests>& approved) {
    return CheckCertificateIdentity(api_, L"real.exe", [&] {
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
  EXPECT_EQ(api_.paths, std::set<std::wstring>{L"real.exe"});
  EXPECT_THAT(log_.lines(),
              ElementsAre(LoggedLine{LogLevel::Debug, "Checking Certificate of installer: a\\x0ab.exe"},
                          LoggedLine{LogLevel::Debug, "Certificate integrity verified"},
                          LoggedLine{LogLevel::Debug, "Certificate identity verified"}));
}

TEST_F(TrustChecks, AnyFailedCallRefusesAndIsLoggedWithItsError) {
  api_.trustStatus = static_cast<std::int32_t>(0x800b010cU);  // a certificate was revoked
  const std::pair<std::string, std::string> steps[] = {
      // These end the check of integrity,
      {"CreateFileW", "Failed CreateFile() of a\\x0ab.exe"},
      {"ImageGetCertificateHeader", "ImageGetCertificateHeader() failed"},
      {"ImageGetCertificateData", "ImageGetCertificateData() failed"},
      {"WinVerifyTrust", "Certificate couldn't be verified with the following error:"},
      // these that of identity,
      {"CryptQueryObject", "CryptQueryObject() failed"},
      {"CryptMsgGetParam (size)", "CryptMsgGetParm() (Getting Size) failed"},
      {"CryptMsgGetParam", "CryptMsgGetParm() failed"},
      {"CertFindCertificateInStore", "CertFindCertificateInStore failed"},
      // and these nothing.
      {"CryptHashCertificate (size)", "CryptHashCertificate() (calculating output size) failed"},
      {"CryptHashCertificate", "CryptHashCertificate() failed"},
      {"CertGetNameStringW (size)", "CertGetNameStringW() (Get size) failed"},
      {"CertGetNameStringW", "CertGetNameString() failed"}};
  for (std::size_t step = 0; step < std::size(steps); ++step) {
    const auto& [call, message] = steps[step];
    const bool isProviders = step == 3, endsNothing = step >= 8;
    for (const std::uint32_t error : {0U, 5U, 0x80092009U}) {
      SCOPED_TRACE(call + " " + std::to_string(error));
      startFailing(call, error);
      // A malformed profile can hold empty text.
      const TrustResult result = step < 4 ? integrity() : identity(ApprovedDigests{""}).result;
      EXPECT_EQ(result.code(), isProviders   ? api_.trustStatus
                               : endsNothing ? 30005
                                             : static_cast<std::int32_t>(failureCode(error)));
      const auto lines = log_.lines();
      const auto line = std::ranges::find(lines, message, &LoggedLine::text);
      ASSERT_LT(line - lines.begin() + 1, lines.end() - lines.begin());
      EXPECT_EQ(line->level, isProviders ? LogLevel::Error : LogLevel::Debug);
      EXPECT_TRUE(line[1].text.starts_with(fmt::format("    Win32 Error: {} ", static_cast<int>(error))));
      const bool hashes = call.starts_with("CryptHash");
      EXPECT_EQ(log_.contains(hashes ? "Certificate hash: " : "Certificate Common Name: "), endsNothing);
      if (endsNothing || step % 4 == 0) continue;  // these release nothing last
      EXPECT_THAT(std::vector(api_.calls.end() - 2, api_.calls.end()), ElementsAre(call, "release"));
    }
  }
}

TEST_F(TrustChecks, AFileThatCouldNotBeOpenedIsLoggedAsIfTheCheckHadTried) {
  startFailing("CreateFileW", 2);
  EXPECT_EQ(integrity().code(), 2);
  const auto texts = log_.texts();
  log_.clear();
  EXPECT_EQ(integrityOfUnopened(L"a\nb.exe", SystemError(2)).code(), 2);
  EXPECT_EQ(log_.texts(), texts);
  EXPECT_EQ(integrityOfUnopened(L"a\nb.exe", SystemError(0)).code(), 31);
}

TEST_F(TrustChecks, AnyOtherSignerIsRefusedAndNamedAndAnEmptyProfileToldFromNone) {
  const std::string signer = " signer CN=Zarn \xC3\x9C\n, O=Zarn, Inc., L=L, C=Z ";
  // The last one is carried along, and made no signature.
  const ApprovedDigests nearly = {boost::to_upper_copy(kImageDigest), kImageDigest + " ",
                                  kImageDigest.substr(0, 63), "ab0a"};
  const std::tuple<const char*, std::optional<ApprovedDigests>, ProfileState, std::string> table[] = {
      {"", ApprovedDigests{kImageDigest, "x"}, ProfileState::Had,
       "verified, 2 digests" + signer + kImageDigest},
      {"", ApprovedDigests{}, ProfileState::Had, "refused, 0 digests" + signer + kImageDigest},
      {"", std::nullopt, ProfileState::NotHad, "refused, 0 digests" + signer + kImageDigest},
      {"CryptHashCertificate", ApprovedDigests{""}, ProfileState::Had, "refused, 1 digests" + signer},
      {"CertFindCertificateInStore", ApprovedDigests{kImageDigest}, ProfileState::NotAsked,
       "refused, 0 digests"},
      {"", nearly, ProfileState::Had, "refused, 4 digests" + signer + kImageDigest}};
  for (const auto& [failing, approved, profile, expected] : table) {
    startFailing(failing);
    const IdentityResult answer = identity(approved);
    std::string text = answer.result.isVerified() ? "verified" : "refused";
    text += fmt::format(", {} digests", answer.approvedDigests);
    if (answer.signer) text += fmt::format(" signer {} {}", answer.signer->subject, answer.signer->digest);
    EXPECT_EQ(text, expected);
    EXPECT_EQ(answer.profile, profile);
  }
  EXPECT_THAT(log_.texts(),
              ElementsAre("Certificate hash: " + kImageDigest, "Certificate Common Name: Zarn \xC3\x9C\\x0a",
                          "Certificate Organization Name: Zarn, Inc.", "Certificate Locality Name: L",
                          "Certificate State Name: ", "Certificate Country Name: Z",
                          "Certificate couldn't be verified"));
  EXPECT_EQ(log_.lines().back().level, LogLevel::Error);
}

}  // namespace
}  // namespace zarn::testing
