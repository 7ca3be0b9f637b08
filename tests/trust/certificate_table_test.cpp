#include "trust/certificate_table.h"

#include <gtest/gtest.h>

#include "program_image.h"

namespace zarn::testing {
namespace {

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
  int left = 1000;
  ASSERT_TRUE(judge(image, image.size(), std::move(left)).isAcceptable());
  for (int reads = 1000 - left; reads-- > 0;)
    EXPECT_FALSE(judge(image, image.size(), int{reads}).isAcceptable()) << reads;
}

}  // namespace
}  // namespace zarn::testing
