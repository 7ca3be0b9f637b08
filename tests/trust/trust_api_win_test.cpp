// The system's own trust calls on files that nobody signed; tests/e2e has really
// signed ones. No revocation is ever looked up by Wine: that it is asked for is
// checked by what WinVerifyTrust is asked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <psapi.h>

#include <cstddef>

#include "os/handles_win.h"
#include "program_image.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/wintrust_call_win.h"

namespace zarn::testing {
namespace {

/// A program with a signature of zeros that claims to be `length` bytes long.
std::string signedWithZeros(std::uint64_t length) {
  ProgramImage image(true);
  image.claim(image.table(), length);
  put(image.bytes, image.table(), length, 4);
  return image.bytes;
}

/// The most memory that this process ever had at once.
std::size_t peakMemory() {
  PROCESS_MEMORY_COUNTERS counters{};
  EXPECT_TRUE(GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)));
  return counters.PeakWorkingSetSize;
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
  const std::string tableRefused = "ImageGetCertificateData() failed";
  const std::tuple<std::string, std::int32_t, std::string> table[] = {
      {"no program", any, "ImageGetCertificateHeader() failed"},
      {signedWithZeros(0), any, "ImageGetCertificateHeader() failed"},
      {ProgramImage(false, {}).bytes, any, "ImageGetCertificateHeader() failed"},
      {signedWithZeros(0x04000000), ERROR_INVALID_DATA, tableRefused},
      // The trust provider of Wine faults on this one, and Windows' is not asked either.
      {ProgramImage(true, {{72, 1}}).bytes, ERROR_INVALID_DATA, tableRefused},
      {signedWithZeros(72), any, "Certificate couldn't be verified with the following error:"},
  };
  for (const auto& [content, code, line] : table) {
    const RecordingLog log;
    writeFile(folder_ / "bundle.exe", content);
    const TrustResult result = integrity();
    EXPECT_FALSE(result.isVerified());
    EXPECT_TRUE(code == any || result.code() == code) << result.code();
    EXPECT_TRUE(log.contains(line)) << ::testing::PrintToString(log.texts());
    EXPECT_FALSE(CheckCertificateIdentity(systemTrustApi(), file_, [] {
                   return ApprovedDigests{""};
                 }).result.isVerified());
    EXPECT_TRUE(log.contains("CryptQueryObject() failed"));
    EXPECT_TRUE(open(GENERIC_READ, 0));
  }
}

TEST_F(SystemTrustApi, NoMemoryIsGivenForWhatAFileClaims) {
  constexpr DWORD claim = 200U << 20U;
  writeFile(folder_ / "bundle.exe", signedWithZeros(claim));
  {
    const FileHandle file = open(GENERIC_WRITE, 0);
    ASSERT_NE(SetFilePointer(file.get(), claim + 4096, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    ASSERT_TRUE(SetEndOfFile(file.get()));  // the claim does lie in the file
  }
  const RecordingLog log;
  const std::size_t before = peakMemory();
  EXPECT_EQ(integrity().code(), ERROR_INVALID_DATA);
  EXPECT_TRUE(log.contains("ImageGetCertificateData() failed"));
  EXPECT_EQ(systemTrustApi().querySignature(file_), nullptr);
  EXPECT_LT(peakMemory() - before, claim / 10);
}

TEST_F(SystemTrustApi, ACheckKeepsWritersOutAndNeedsReaders) {
  constexpr DWORD everything = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  EXPECT_EQ(integrity().code(), ERROR_FILE_NOT_FOUND);
  writeFile(folder_ / "bundle.exe", "");
  auto checked = systemTrustApi().openFile(file_);
  ASSERT_NE(checked, nullptr);
  EXPECT_FALSE(open(GENERIC_WRITE, everything));
  EXPECT_FALSE(open(DELETE, everything));
  EXPECT_TRUE(open(GENERIC_READ, everything));
  checked.reset();
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
