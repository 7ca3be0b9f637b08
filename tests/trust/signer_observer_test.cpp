#include "trust/signer_observer.h"

#include <gtest/gtest.h>

#include "scripted_trust_api.h"
#include "support/recording_log.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"

namespace zarn::testing {
namespace {

std::string digest() {
  std::string text;
  while (text.size() < 64) text += "0a";
  return text;
}

ScriptedTrustApi signedFile() {
  ScriptedTrustApi api;
  api.carried.push_back({"CN=Decoy, 2", std::vector<std::uint8_t>(32, 0xFF), {{"2.5.4.3", L"Decoy"}}});
  api.carried.push_back({api.signerOfMessage,
                         std::vector<std::uint8_t>(32, 0x0A),
                         {{"2.5.4.3", L"Zarn \u00DC"}, {"2.5.4.6", L"US"}}});
  return api;
}

struct Checked {
  std::int32_t integrity;
  std::int32_t identity;
  std::vector<LoggedLine> lines;

  friend bool operator==(const Checked&, const Checked&) = default;
};

Checked check(TrustApi& api, const std::set<std::string>& approved) {
  const RecordingLog log;
  const auto integrity = CheckCertificateIntegrity(api, L"x.exe").code();
  const auto identity = CheckCertificateIdentity(api, L"x.exe", [&] { return approved; }).code();
  return {integrity, identity, log.lines()};
}

TEST(SignerObserver, ChangesNoAnswerWhateverFails) {
  for (const char* failing : {"", "CreateFileW", "ImageGetCertificateHeader", "ImageGetCertificateData",
                              "WinVerifyTrust", "CryptQueryObject", "CryptMsgGetParam (size)",
                              "CryptMsgGetParam", "CertFindCertificateInStore", "CryptHashCertificate (size)",
                              "CryptHashCertificate", "CertGetNameStringW (size)", "CertGetNameStringW"}) {
    for (const std::uint32_t error : {0U, 5U}) {
      for (const auto& approved : {std::set<std::string>{}, std::set<std::string>{digest()}}) {
        ScriptedTrustApi plain = signedFile();
        plain.failingCall = failing;
        plain.failure = error;
        plain.trustStatus = 77;
        ScriptedTrustApi watched = plain;
        SignerObserver observer(watched);
        EXPECT_EQ(check(observer, approved), check(plain, approved)) << failing << " " << error;
      }
    }
  }
}

TEST(SignerObserver, NamesTheSignerAndNotWhoIsMerelyCarriedAlong) {
  ScriptedTrustApi api = signedFile();
  SignerObserver observer(api);
  EXPECT_FALSE(observer.signer());
  check(observer, {digest()});
  ASSERT_TRUE(observer.signer());
  EXPECT_EQ(observer.signer()->digest, digest());
  EXPECT_EQ(observer.signer()->subject, "CN=Zarn \xC3\x9C, C=US");

  ScriptedTrustApi unhashable = signedFile();
  unhashable.failingCall = "CryptHashCertificate";
  SignerObserver blind(unhashable);
  check(blind, {""});
  ASSERT_TRUE(blind.signer());
  EXPECT_EQ(blind.signer()->digest, "");
}

}  // namespace
}  // namespace zarn::testing
