#include "trust/certificate_table.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "program_image.h"

namespace zarn::testing {
namespace {

using Verdict = CertificateTable::Verdict;

/// Of an image that is followed by zeros up to `fileBytes`. A read outside fails the test.
CertificateTable judge(const std::string& image, std::uint64_t fileBytes) {
  return judgeCertificateTable(fileBytes, [&](std::uint64_t offset, std::span<std::byte> bytes) {
    EXPECT_LE(offset + bytes.size(), fileBytes);
    EXPECT_LE(bytes.size(), 8U);
    for (std::byte& byte : bytes)
      byte = static_cast<std::byte>(offset < image.size() ? image[offset] : 0), ++offset;
    return true;
  });
}
std::vector<TableEntry> entries(std::size_t count) {
  return std::vector<TableEntry>(count, TableEntry{8});
}

TEST(CertificateTable, OnlyPkcs7EntriesThatFillATableInTheFileAreAcceptable) {
  const std::pair<Verdict, std::vector<std::vector<TableEntry>>> cases[] = {
      // One, a header only, padded at the end; two, the last padded, as many as may be.
      {Verdict::Acceptable, {{{72}}, {{8}}, {{69}}}},
      {Verdict::Acceptable, {{{72}, {80}}, {{72}, {77}}, entries(kMaxCertificateEntries)}},
      // One more; no type, one of which only one byte is right.
      {Verdict::Refused, {entries(kMaxCertificateEntries + 1), {{72, 0}}, {{72, 0x0102}}}},
      // An X.509 certificate alone, before and behind a good entry.
      {Verdict::Refused, {{{72, 1}}, {{72, 1}, {72}}, {{72}, {72, 1}}}},
      // Shorter than its header, no length, that behind a good entry, one where some would not look.
      {Verdict::Refused, {{{7}}, {{0}}, {{72}, {0}}, {{69}, {72}}}}};
  for (const bool is64Bit : {false, true}) {
    for (const auto& [verdict, tables] : cases) {
      for (std::size_t i = 0; i < tables.size(); ++i) {
        const std::string image = ProgramImage(is64Bit, tables[i]).bytes;
        const CertificateTable judged = judge(image, image.size());
        EXPECT_EQ(judged.verdict, verdict) << i << is64Bit;
        EXPECT_EQ(judged.firstEntryBytes, judged.isAcceptable() ? tables[i].front().length : 0);
      }
    }
  }
}

/// A number of so many bytes that is put somewhere.
struct Change {
  std::uint64_t at, number, bytes;
};

TEST(CertificateTable, ChangedHeadersAndClaimsAreMissingOrRefused) {
  for (const bool is64Bit : {false, true}) {
    const ProgramImage good(is64Bit);
    const std::size_t size = good.bytes.size();
    const std::size_t claim = good.directories + 4 * 8;  // its offset, then its size
    const std::pair<Verdict, std::vector<Change>> cases[] = {
        // No "MZ"; headers outside, at the end; no "PE".
        {Verdict::Missing,
         {{0, 'm', 1}, {0x3C, 0xFFFFFFFF, 4}, {0x3C, size - 3, 4}, {ProgramImage::kHeaders + 3, 1, 1}}},
        // No magic; four directories; an empty table.
        {Verdict::Missing,
         {{good.optionalHeader, 0x107, 2}, {good.directories - 4, 4, 4}, {claim + 4, 0, 4}}},
        // At the file's beginning, in the headers; all but around the end of numbers.
        {Verdict::Refused, {{claim, 0, 4}, {claim, good.directories, 4}, {claim, 0xFFFFFFF8, 4}}},
        // Begins outside, begins at the end, ends outside, all there is.
        {Verdict::Refused,
         {{claim, size + 8, 4}, {claim, size, 4}, {claim + 4, 80, 4}, {claim + 4, 0xFFFFFFFF, 4}}},
        // Smaller than its entry, room for half a header; an entry beyond the table, one that claims
        // everything.
        {Verdict::Refused,
         {{claim + 4, 64, 4}, {claim + 4, 4, 4}, {good.table(), 73, 4}, {good.table(), 0xFFFFFFFF, 4}}}};
    for (const auto& [verdict, changes] : cases) {
      for (const auto& [at, number, bytes] : changes) {
        std::string image = good.bytes;
        put(image, at, number, bytes);
        EXPECT_EQ(judge(image, size).verdict, verdict) << number << " at " << at;
      }
    }
    // An empty file, one cut in the directory, one cut at its end.
    for (const std::size_t length : {std::size_t{0}, claim + 7, size - 1}) {
      EXPECT_EQ(judge(good.bytes.substr(0, length), length).verdict,
                length < size - 1 ? Verdict::Missing : Verdict::Refused);
    }
  }
}

TEST(CertificateTable, NoMoreThanSixteenMebibytesAreEverClaimedWhateverTheFileHolds) {
  for (const std::uint32_t beyond : {0U, 1U, 0xEF000000U}) {
    ProgramImage image(true);
    image.claim(image.table(), kMaxCertificateTableBytes + beyond);
    put(image.bytes, image.table(), kMaxCertificateTableBytes + beyond, 4);
    EXPECT_EQ(judge(image.bytes, std::uint64_t{5} << 30U).isAcceptable(), beyond == 0) << beyond;
  }
}

TEST(CertificateTable, WhatCannotBeReadIsNeverAcceptable) {
  const std::string image = ProgramImage(true, {{72}, {72}}).bytes;
  std::size_t reads = 0;
  const auto judgeFailingAt = [&](std::size_t failing) {
    reads = 0;
    return judgeCertificateTable(image.size(), [&](std::uint64_t offset, std::span<std::byte> bytes) {
      std::ranges::copy(std::as_bytes(std::span(image).subspan(offset, bytes.size())), bytes.begin());
      return reads++ != failing;
    });
  };
  ASSERT_TRUE(judgeFailingAt(~std::size_t{0}).isAcceptable());
  for (std::size_t i = 0, all = reads; i < all; ++i) EXPECT_FALSE(judgeFailingAt(i).isAcceptable()) << i;
}

}  // namespace
}  // namespace zarn::testing
