// The system's own trust calls on files that nobody signed; tests/e2e has really
// signed ones. No revocation is ever looked up by Wine: that it is asked for is
// checked by what WinVerifyTrust is asked.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstddef>

#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/wintrust_call_win.h"
#include "util/windows_handles.h"

namespace zarn::testing {
namespace {

/// A program of nothing but headers and a signature of zeros that claims to be `length` bytes long.
std::string programSignedWithZeros(DWORD length) {
  struct Image {
    IMAGE_DOS_HEADER dos;
    IMAGE_NT_HEADERS64 headers;
    WIN_CERTIFICATE certificate;
    char signature[64];
  } image{};
  image.dos.e_magic = IMAGE_DOS_SIGNATURE;
  image.dos.e_lfanew = offsetof(Image, headers);
  image.headers.Signature = IMAGE_NT_SIGNATURE;
  image.headers.FileHeader.Machine = IMAGE_FILE_MACHINE_AMD64;
  image.headers.FileHeader.SizeOfOptionalHeader = sizeof(IMAGE_OPTIONAL_HEADER64);
  image.headers.OptionalHeader.Magic = IMAGE_NT_OPTIONAL_HDR64_MAGIC;
  image.headers.OptionalHeader.NumberOfRvaAndSizes = IMAGE_NUMBEROF_DIRECTORY_ENTRIES;
  image.headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_SECURITY] = {offsetof(Image, certificate),
                                                                                length};
  image.certificate.dwLength = length;
  image.certificate.wRevision = WIN_CERT_REVISION_2_0;
  image.certificate.wCertificateType = WIN_CERT_TYPE_PKCS_SIGNED_DATA;
  return {reinterpret_cast<const char*>(&image), sizeof(image)};
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
  const struct {
    std::string content;
    std::int32_t code;
    std::string line;
  } table[] = {
      {"no program", any, "ImageGetCertificateHeader() failed"},
      {programSignedWithZeros(0), any, "ImageGetCertificateHeader() failed"},
      {programSignedWithZeros(0x04000000), ERROR_INVALID_DATA, "ImageGetCertificateData() failed"},
      {programSignedWithZeros(72), any, "Certificate couldn't be verified with the following error:"},
  };
  for (const auto& [content, code, line] : table) {
    const RecordingLog log;
    writeFile(folder_ / "bundle.exe", content);
    const TrustResult result = integrity();
    EXPECT_FALSE(result.isVerified());
    EXPECT_TRUE(code == any || result.code() == code) << result.code();
    EXPECT_TRUE(log.contains(line)) << ::testing::PrintToString(log.texts());
    const auto fetchAny = [] { return std::set<std::string>{""}; };
    EXPECT_FALSE(CheckCertificateIdentity(systemTrustApi(), file_, fetchAny).isVerified());
    EXPECT_TRUE(log.contains("CryptQueryObject() failed"));
    EXPECT_TRUE(open(GENERIC_READ, 0));
  }
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
  EXPECT_EQ(data.fdwRevocationChecks, 1U);
  EXPECT_EQ(data.dwProvFlags, 0x40U);
  EXPECT_EQ(data.dwUIChoice, 2U);
  EXPECT_EQ(data.dwStateAction, 0U);
  ASSERT_EQ(data.dwUnionChoice, 1U);
  EXPECT_STREQ(data.pFile->pcwszFilePath, L"bundle.exe");
}

}  // namespace
}  // namespace zarn::testing
