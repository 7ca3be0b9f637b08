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

  IdentityResult integrity() { return {CheckCertificateIntegrity(api_, L"real.exe", L"a\nb.exe")}; }
  IdentityResult identity(const ProfileAnswer& approved) {
    return CheckCertificateIdentity(api_, L"real.exe", [&] {
      api_.calls.emplace_back("fetch");
      return approved;
    });
  }
  /// Puts down what a check answers, does and says while a call fails.
  template <typename Check>
  void tell(const std::string& failingCall, std::uint32_t error, Check check) {
    api_.failingCall = failingCall;
    api_.error = SystemError(error);
    const IdentityResult answer = check();
    const Signer signer = answer.signer.value_or(Signer{"", "nobody"});
    story_ += fmt::format("{} {:#x} -> {:#x}, profile {} with {}, {:?} {:?}\n  {}\n", failingCall, error,
                          static_cast<std::uint32_t>(answer.result.code()), static_cast<int>(answer.profile),
                          answer.approvedDigests, signer.subject, signer.digest, api_.calls);
    for (const auto& [level, text] : log_.lines()) {
      const bool isErrors = text.starts_with("    Win32 Error: ");  // whose text is the system's
      const auto shown = text.substr(0, isErrors ? text.find(' ', 17) : std::string::npos);
      story_ += fmt::format("  {} {:?}\n", static_cast<int>(level), shown);
    }
    api_.calls.clear();
    log_.clear();
  }

  ScriptedTrustApi api_;
  RecordingLog log_;
  std::string story_;
};

TEST_F(TrustChecks, GoAsTheirStoryTells) {
  // The last one is carried along, and made no signature.
  const ApprovedDigests nearly = {boost::to_upper_copy(kImageDigest), kImageDigest + " ",
                                  kImageDigest.substr(0, 63), "ab0a"};
  tell("nothing", 0, [&] { return integrity(); });
  for (const auto& approved : std::vector<ProfileAnswer>{
           {{kImageDigest, "x"}}, ApprovedDigests{}, tl::unexpected(ProfileNotHad{"HTTP 404"}), nearly})
    tell("nothing", 0, [&] { return identity(approved); });
  api_.trustStatus = static_cast<std::int32_t>(0x800b010cU);  // a certificate was revoked
  // A failed digest is empty text, which a malformed profile can hold too.
  for (const std::uint32_t error : {0U, 5U, 0x80092009U}) {
    for (const char* call :
         {"CreateFileW", "ImageGetCertificateHeader", "ImageGetCertificateData", "WinVerifyTrust"})
      tell(call, error, [&] { return integrity(); });
    for (const char* call : {"CryptQueryObject", "CryptMsgGetParam (size)", "CryptMsgGetParam",
                             "CertFindCertificateInStore", "CryptHashCertificate (size)",
                             "CryptHashCertificate", "CertGetNameStringW (size)", "CertGetNameStringW"})
      tell(call, error, [&] { return identity(ApprovedDigests{""}); });
    tell("the opening before", error,
         [&] { return IdentityResult{integrityOfUnopened(L"a\nb.exe", SystemError(error))}; });
  }
  EXPECT_EQ(story_, readFile(ZARN_SOURCE "/tests/trust/story.txt"));
  EXPECT_EQ(api_.paths, std::set<std::wstring>{L"real.exe"});
}

}  // namespace
}  // namespace zarn::testing
