// The system's own trust calls on really signed files. What Wine's do not do is
// not shown here: no revocation is ever looked up, and a chain of SHA-256
// certificates is accepted whatever is wrong with it. So the chains that must be
// refused are signed with SHA-1, and that revocation is asked for is checked by
// what WinVerifyTrust is asked.
#include <gtest/gtest.h>
#include <windows.h>

#include <wincrypt.h>

#include <cstdlib>
#include <map>
#include <sstream>

#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/wintrust_call_win.h"
#include "util/string_utils.h"
#include "util/windows_handles.h"

namespace zarn::testing {
namespace {

class SignedFiles : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const char* const folder = std::getenv("ZARN_SIGNED_FILES");
    ASSERT_NE(folder, nullptr) << "made by make_signed_files.py";
    folder_ = folder;
    std::istringstream digests(readFile(folder_ + "/digests.txt"));
    for (std::string line; std::getline(digests, line);) {
      const auto equals = line.find('=');
      digests_[line.substr(0, equals)] = line.substr(equals + 1);
    }
    const HCERTSTORE store =
        CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
    for (const char* root : {"/root.der", "/sha1-root.der"}) {
      const std::string der = readFile(folder_ + root);
      EXPECT_NE(CertAddEncodedCertificateToStore(
                    store, X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(der.data()),
                    static_cast<DWORD>(der.size()), CERT_STORE_ADD_REPLACE_EXISTING, nullptr),
                0);
    }
    CertCloseStore(store, 0);
  }

  static std::wstring file(const std::string& name) {
    return StringUtils::utf8to16(folder_ + "/" + name + ".exe");
  }

  static FileHandle open(const std::string& name, DWORD access, DWORD share) {
    return FileHandle(CreateFileW(file(name).c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr));
  }

  static inline std::string folder_;
  static inline std::map<std::string, std::string> digests_;
};

TEST_F(SignedFiles, EachIsJudgedByWhatIsWrongWithIt) {
  constexpr std::uint32_t any = 0xFFFFFFFF;  // refused; the number is the system's affair
  const std::string holds = "Certificate integrity verified";
  const std::string notTrusted = "Certificate couldn't be verified with the following error:";
  const std::string ours = "Certificate identity verified";
  const std::string notOurs = "Certificate couldn't be verified";
  const std::string noSignature = "CryptQueryObject() failed";
  const auto fetchApproved = [] { return std::set{digests_["approved"], digests_["approved-sha1"]}; };
  const struct {
    std::string name;
    std::uint32_t integrity, identity;
    std::string integrityLine, identityLine;
  } table[] = {
      {"approved", 0, 0, holds, ours},
      {"approved-sha1", 0, 0, holds, ours},
      {"unsigned", any, 0x80092009, "ImageGetCertificateHeader() failed", noSignature},
      {"changed", 0x80096010, 0, notTrusted, ours},
      {"untrusted-root", 0x800b0109, 30005, notTrusted, notOurs},
      {"expired", 0x800b0101, 30005, notTrusted, notOurs},
      {"decoy", 0, 30005, holds, "Certificate hash: " + digests_["other"]},
      {"spoiled", any, any, notTrusted, noSignature},
      {"huge-length", ERROR_INVALID_DATA, any, "ImageGetCertificateData() failed", noSignature},
      {"missing", ERROR_FILE_NOT_FOUND, any, "Failed CreateFile() of " + folder_ + "/missing.exe",
       noSignature},
  };
  const auto expectCode = [&](const TrustResult& result, std::uint32_t expected) {
    EXPECT_EQ(result.isVerified(), expected == 0);
    EXPECT_TRUE(expected == any || static_cast<std::uint32_t>(result.code()) == expected) << result.code();
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    RecordingLog log;
    expectCode(CheckCertificateIntegrity(systemTrustApi(), file(row.name)), row.integrity);
    EXPECT_TRUE(log.contains(row.integrityLine)) << ::testing::PrintToString(log.texts());
    log.clear();
    expectCode(CheckCertificateIdentity(systemTrustApi(), file(row.name), fetchApproved), row.identity);
    EXPECT_TRUE(log.contains(row.identityLine)) << ::testing::PrintToString(log.texts());
    EXPECT_TRUE(row.name == "missing" || open(row.name, GENERIC_READ, 0)) << "still open";
  }
}

TEST_F(SignedFiles, ACheckKeepsWritersOutAndNeedsReaders) {
  constexpr DWORD everything = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  auto checked = systemTrustApi().openFile(file("approved"));
  ASSERT_NE(checked, nullptr);
  EXPECT_FALSE(open("approved", GENERIC_WRITE, everything));
  EXPECT_FALSE(open("approved", DELETE, everything));
  EXPECT_TRUE(open("approved", GENERIC_READ, everything));
  checked.reset();
  const FileHandle held = open("approved", GENERIC_READ | GENERIC_WRITE, 0);
  EXPECT_TRUE(held);
  EXPECT_EQ(CheckCertificateIntegrity(systemTrustApi(), file("approved")).code(), ERROR_SHARING_VIOLATION);
}

TEST(WinTrustCall, AsksForRevocationOfTheWholeChainAndForNoUserInterface) {
  WinTrustCall call(L"bundle.exe");
  const WINTRUST_DATA& data = *call.data();
  EXPECT_EQ(data.fdwRevocationChecks, 1U);
  EXPECT_EQ(data.dwProvFlags, 0x40U);
  EXPECT_EQ(data.dwUIChoice, 2U);
  EXPECT_EQ(data.dwStateAction, 0U);
  ASSERT_EQ(data.dwUnionChoice, 1U);
  EXPECT_STREQ(data.pFile->pcwszFilePath, L"bundle.exe");
}

}  // namespace
}  // namespace zarn::testing
