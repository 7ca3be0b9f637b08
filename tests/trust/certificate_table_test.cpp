// Certificate tables as they are judged, and as the system's own trust calls meet them: on files that
// nobody signed; tests/e2e has really signed ones. No revocation is ever looked up by Wine: that it is
// asked for is checked by what WinVerifyTrust is asked.
#include "trust/certificate_table.h"

#include "support/test.h"

#ifdef _WIN32
#include <windows.h>

#include "os/handles_win.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/trust_api_win.h"
#endif

namespace zarn::testing {
namespace {

// Programs of nothing but headers and a certificate table, to be changed at will.

/// Writes `value` over `size` bytes at `offset`, lowest byte first.
void put(std::string& image, std::size_t offset, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) image.at(offset + i) = static_cast<char>(value >> (8 * i) & 0xFFU);
}

struct TableEntry {
  std::uint32_t length = 72;  ///< as it says itself; what it has is a multiple of eight
  std::uint16_t type = 2;     ///< PKCS #7 signed data
};

struct ProgramImage {
  explicit ProgramImage(bool is64Bit, const std::vector<TableEntry>& entries = {TableEntry()})
      : optionalHeader(kHeaders + 24), directories(optionalHeader + (is64Bit ? 112U : 96U)) {
    bytes.resize(table());
    put(bytes, 0, 0x5A4D, 2);  // "MZ"
    put(bytes, 0x3C, kHeaders, 4);
    put(bytes, kHeaders, 0x4550, 4);                         // "PE"
    put(bytes, kHeaders + 4, is64Bit ? 0x8664 : 0x014C, 2);  // the machine
    put(bytes, kHeaders + 20, table() - optionalHeader, 2);  // size of the optional header
    put(bytes, optionalHeader, is64Bit ? 0x20B : 0x10B, 2);
    put(bytes, directories - 4, 16, 4);  // their number
    for (const TableEntry& entry : entries) {
      const std::size_t offset = bytes.size();
      bytes.resize(offset + std::max(8U, (entry.length + 7U) / 8 * 8));
      put(bytes, offset, entry.length, 4);
      put(bytes, offset + 4, 0x0200, 2);  // the revision
      put(bytes, offset + 6, entry.type, 2);
    }
    claim(table(), bytes.size() - table());
  }

  /// Where the certificate table begins unless the headers were told otherwise.
  [[nodiscard]] std::size_t table() const { return directories + 16U * 8; }

  void claim(std::uint64_t offset, std::uint64_t size) {
    put(bytes, directories + 4U * 8, offset, 4);
    put(bytes, directories + 4U * 8 + 4, size, 4);
  }

  static constexpr std::size_t kHeaders = 64;
  std::size_t optionalHeader;
  std::size_t directories;
  std::string bytes;
};

/// The bytes of a program whose headers and one entry, of zeros, claim `length` bytes.
std::string claiming(std::uint64_t length) {
  ProgramImage image(true);
  image.claim(image.table(), length);
  put(image.bytes, image.table(), length, 4);
  return image.bytes;
}

using enum CertificateTable::Verdict;
using Verdict = CertificateTable::Verdict;
using Entries = std::vector<TableEntry>;

/// Of an image that is followed by zeros up to `fileBytes`; the read fails before which none is left. One
/// that goes outside fails the test.
CertificateTable judge(const std::string& image, std::uint64_t fileBytes, int&& left = 1000) {
  return judgeCertificateTable(fileBytes, [&](std::uint64_t offset, std::span<std::byte> bytes) {
    EXPECT_TRUE(offset + bytes.size() <= fileBytes && bytes.size() <= 8);
    for (std::byte& byte : bytes)
      byte = static_cast<std::byte>(offset < image.size() ? image[offset] : 0), ++offset;
    return left-- != 0;
  });
}

TEST(CertificateTable, OnlyPkcs7EntriesThatFillATableInTheFileAreAcceptable) {
  const std::pair<Verdict, std::vector<Entries>> cases[] = {
      // One, a header only, padded at the end; two, the last padded, as many as may be.
      {Acceptable, {{{72}}, {{8}}, {{69}}, {{72}, {80}}, {{72}, {77}}, Entries(kMaxCertificateEntries)}},
      // One more; no type, one of which only one byte is right.
      {Refused, {Entries(kMaxCertificateEntries + 1), {{72, 0}}, {{72, 0x0102}}}},
      // An X.509 certificate alone, before and behind a good entry.
      {Refused, {{{72, 1}}, {{72, 1}, {72}}, {{72}, {72, 1}}}},
      // Shorter than its header, no length, that behind a good entry, one where some would not look.
      {Refused, {{{7}}, {{0}}, {{72}, {0}}, {{69}, {72}}}}};
  for (const bool is64Bit : {false, true})
    for (const auto& [verdict, tables] : cases)
      for (const Entries& entries : tables) {
        const std::string image = ProgramImage(is64Bit, entries).bytes;
        const CertificateTable judged = judge(image, image.size());
        EXPECT_EQ(judged.verdict, verdict) << entries.front().length << " " << entries.front().type;
        EXPECT_EQ(judged.firstEntryBytes, verdict == Acceptable ? entries.front().length : 0);
      }
}

TEST(CertificateTable, ChangedHeadersAndClaimsAreMissingOrRefused) {
  for (const bool is64Bit : {false, true}) {
    const ProgramImage good(is64Bit);
    const std::size_t size = good.bytes.size();
    const std::size_t claim = good.directories + 4 * 8;  // its offset, then its size
    // What number of how many bytes is put where.
    using Changes = std::vector<std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>>;
    const std::pair<Verdict, Changes> cases[] = {
        // No "MZ"; headers outside, at the end; no "PE".
        {Missing, {{0, 'm', 1}, {0x3C, ~0U, 4}, {0x3C, size - 3, 4}, {ProgramImage::kHeaders + 3, 1, 1}}},
        // No magic; four directories; an empty table.
        {Missing, {{good.optionalHeader, 0x107, 2}, {good.directories - 4, 4, 4}, {claim + 4, 0, 4}}},
        // At the file's beginning, in the headers; all but around the end of numbers.
        {Refused, {{claim, 0, 4}, {claim, good.directories, 4}, {claim, 0xFFFFFFF8, 4}}},
        // Begins outside, begins at the end, ends outside, all there is.
        {Refused, {{claim, size + 8, 4}, {claim, size, 4}, {claim + 4, 80, 4}, {claim + 4, ~0U, 4}}},
        // Smaller than its entry, room for half a header.
        {Refused, {{claim + 4, 64, 4}, {claim + 4, 4, 4}}},
        // An entry beyond the table, one that claims everything.
        {Refused, {{good.table(), 73, 4}, {good.table(), ~0U, 4}}}};
    for (const auto& [verdict, changes] : cases)
      for (const auto& [at, number, bytes] : changes) {
        std::string image = good.bytes;
        put(image, at, number, bytes);
        EXPECT_EQ(judge(image, size).verdict, verdict) << number << " at " << at;
      }
    // A table right behind what describes it, of one entry without content.
    std::string image = good.bytes;
    for (const auto& [at, number] : {std::pair{claim, claim + 8}, {claim + 4, 8}, {claim + 8, 8}})
      put(image, at, number, 4);
    put(image, claim + 14, 2, 2);
    EXPECT_EQ(judge(image, size).verdict, Acceptable);
    // An empty file, one cut in the directory, one cut at its end.
    for (const auto& [length, verdict] :
         {std::pair{std::size_t{0}, Missing}, {claim + 7, Missing}, {size - 1, Refused}})
      EXPECT_EQ(judge(good.bytes.substr(0, length), length).verdict, verdict);
  }
}

TEST(CertificateTable, NoMoreThanSixteenMebibytesAreEverClaimedWhateverTheFileHolds) {
  for (const std::uint32_t beyond : {0U, 1U, 0xEF000000U})
    EXPECT_EQ(judge(claiming(kMaxCertificateTableBytes + beyond), 5ULL << 30U).isAcceptable(), beyond == 0);
}

TEST(CertificateTable, WhatCannotBeReadIsNeverAcceptable) {
  const std::string image = ProgramImage(true, {{72}, {72}}).bytes;
  int left = 1000;  // judge() counts down what it is given
  ASSERT_TRUE(judge(image, image.size(), static_cast<int&&>(left)).isAcceptable());
  for (int reads = 1000 - left; reads-- > 0;)
    EXPECT_FALSE(judge(image, image.size(), int{reads}).isAcceptable()) << reads;
}

#ifdef _WIN32
struct SystemTrustApi : ::testing::Test {
  FileHandle open(DWORD access, DWORD share) const {
    return FileHandle(CreateFileW(file_.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr));
  }
  TrustResult integrity() const { return CheckCertificateIntegrity(systemTrustApi(), file_); }

  TempDirectory folder_;
  const std::wstring file_ = toPath(folder_ / "bundle.exe").wstring();
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
#endif

}  // namespace
}  // namespace zarn::testing
