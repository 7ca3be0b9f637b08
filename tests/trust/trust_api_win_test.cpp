// The system's own trust calls on files that nobody signed; tests/e2e has really
// signed ones. No revocation is ever looked up by Wine: that it is asked for is
// checked by what WinVerifyTrust is asked.
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
  const std::string noEntry = "ImageGetCertificateHeader() failed";
  const std::string refused = "ImageGetCertificateData() failed";
  const std::string untrusted = "Certificate couldn't be verified with the following error:";
  const std::pair<std::string, std::string> table[] = {
      {"no program", noEntry},
      {claiming(0), noEntry},
      {ProgramImage(false, {}).bytes, noEntry},
      {claiming(0x04000000), refused},
      // The trust provider of Wine faults on this one, and Windows' is not asked either.
      {ProgramImage(true, {{72, 1}}).bytes, refused},
      {claiming(72), untrusted}};
  for (const auto& [content, line] : table) {
    const RecordingLog log;
    writeFile(folder_ / "bundle.exe", content);
    const auto approve = [] { return ApprovedDigests{""}; };
    const TrustResult results[] = {integrity(),
                                   CheckCertificateIdentity(systemTrustApi(), file_, approve).result};
    EXPECT_FALSE(results[0].isVerified() || results[1].isVerified());
    // Other numbers are the system's affair.
    EXPECT_TRUE(line != refused || results[0].code() == ERROR_INVALID_DATA) << results[0].code();
    const auto code = static_cast<std::int32_t>(line == refused ? ERROR_INVALID_DATA : CRYPT_E_NO_MATCH);
    EXPECT_TRUE(line == untrusted || results[1].code() == code) << results[1].code();
    EXPECT_TRUE(log.contains(line) && log.contains("CryptQueryObject() failed")) << line;
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
  EXPECT_EQ(std::tuple(data.fdwRevocationChecks, data.dwProvFlags, data.dwUIChoice, data.dwStateAction,
                       data.dwUnionChoice, std::wstring(data.pFile->pcwszFilePath)),
            std::tuple(1U, 0x40U, 2U, 0U, 1U, L"bundle.exe"));
}

}  // namespace
}  // namespace zarn::testing
