// The system's own trust calls on files that nobody signed; tests/e2e has really
// signed ones. No revocation is ever looked up by Wine: that it is asked for is
// checked by what WinVerifyTrust is asked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include "os/handles_win.h"
#include "program_image.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/trust_api_win.h"

namespace zarn::testing {
namespace {

/// A program with a signature of zeros that claims to be `length` bytes long.
std::string signedWithZeros(std::uint64_t length) {
  ProgramImage image(true);
  image.claim(image.table(), length);
  put(image.bytes, image.table(), length, 4);
  return image.bytes;
}

class SystemTrustApi : public ::testing::Test {
 protected:
  FileHandle open(DWORD access, DWORD share) const {
    return FileHandle(CreateFileW(file_.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr));
  }
  TrustResult integrity() const { return CheckCertificateIntegrity(systemTrustApi(), file_); }

  TempDirectory folder_;
  const std::wstring file_ = FileUtils::toPath(folder_ / "bundle.exe").wstring();
};

TEST_F(SystemTrustApi, RefusesWhatNobodySignedAndKeepsNothingOpen) {
  constexpr std::int32_t any = -1;  // the number is the system's affair
  constexpr auto noSignature = static_cast<std::int32_t>(CRYPT_E_NO_MATCH);
  const std::string noEntry = "ImageGetCertificateHeader() failed";
  const std::string refused = "ImageGetCertificateData() failed";
  const std::string untrusted = "Certificate couldn't be verified with the following error:";
  const std::tuple<std::string, std::string, std::int32_t, std::int32_t> table[] = {
      {"no program", noEntry, any, noSignature},
      {signedWithZeros(0), noEntry, any, noSignature},
      {ProgramImage(false, {}).bytes, noEntry, any, noSignature},
      {signedWithZeros(0x04000000), refused, ERROR_INVALID_DATA, ERROR_INVALID_DATA},
      // The trust provider of Wine faults on this one, and Windows' is not asked either.
      {ProgramImage(true, {{72, 1}}).bytes, refused, ERROR_INVALID_DATA, ERROR_INVALID_DATA},
      {signedWithZeros(72), untrusted, any, any}};
  for (const auto& [content, line, integrityCode, identityCode] : table) {
    const RecordingLog log;
    writeFile(folder_ / "bundle.exe", content);
    const auto approve = [] { return ApprovedDigests{""}; };
    const TrustResult results[] = {integrity(),
                                   CheckCertificateIdentity(systemTrustApi(), file_, approve).result};
    EXPECT_FALSE(results[0].isVerified() || results[1].isVerified());
    EXPECT_TRUE(integrityCode == any || results[0].code() == integrityCode) << results[0].code();
    EXPECT_TRUE(identityCode == any || results[1].code() == identityCode) << results[1].code();
    EXPECT_TRUE(log.contains(line)) << ::testing::PrintToString(log.texts());
    EXPECT_TRUE(log.contains("CryptQueryObject() failed"));
    EXPECT_TRUE(open(GENERIC_READ, 0));
  }
}

TEST_F(SystemTrustApi, ACheckKeepsWritersOutAndNeedsReaders) {
  constexpr DWORD everything = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  EXPECT_EQ(integrity().code(), ERROR_FILE_NOT_FOUND);
  writeFile(folder_ / "bundle.exe", "");
  auto checked = systemTrustApi().openFile(file_);
  ASSERT_TRUE(checked);
  EXPECT_FALSE(open(GENERIC_WRITE, everything));
  EXPECT_FALSE(open(DELETE, everything));
  EXPECT_TRUE(open(GENERIC_READ, everything));
  checked->reset();
  const FileHandle held = open(GENERIC_READ | GENERIC_WRITE, 0);
  EXPECT_EQ(integrity().code(), ERROR_SHARING_VIOLATION);
}

TEST(WinTrustCall, AsksForRevocationOfTheWholeChainAndForNoUserInterface) {
  WinTrustCall call(L"bundle.exe");
  const WINTRUST_DATA& data = *call.data();
  const DWORD asked[] = {data.fdwRevocationChecks, data.dwProvFlags, data.dwUIChoice, data.dwStateAction,
                         data.dwUnionChoice};
  EXPECT_THAT(asked, ::testing::ElementsAre(1U, 0x40U, 2U, 0U, 1U));
  EXPECT_STREQ(data.pFile->pcwszFilePath, L"bundle.exe");
}

}  // namespace
}  // namespace zarn::testing
