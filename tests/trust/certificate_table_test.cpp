#include "trust/certificate_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "program_image.h"

namespace zarn::testing {
namespace {

using Verdict = CertificateTable::Verdict;

/// Of an image that is followed by zeros up to `fileBytes`. A read outside fails the test.
CertificateTable judge(const std::string& image, std::uint64_t fileBytes) {
  return judgeCertificateTable(fileBytes, [&](std::uint64_t offset, std::span<std::byte> bytes) {
    EXPECT_LE(offset + bytes.size(), fileBytes);
    EXPECT_LE(bytes.size(), 8U);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const std::uint64_t at = offset + i;
      bytes[i] = at < image.size() ? static_cast<std::byte>(image[at]) : std::byte{0};
    }
    return true;
  });
}
CertificateTable judge(const std::string& image) {
  return judge(image, image.size());
}

std::vector<TableEntry> entries(std::size_t count) {
  return std::vector<TableEntry>(count, TableEntry{8});
}

TEST(CertificateTable, OnlyPkcs7EntriesThatFillATableInTheFileAreAcceptable) {
  const struct {
    const char* what;
    Verdict verdict;
    std::vector<TableEntry> entries;
  } table[] = {
      {"one entry", Verdict::Acceptable, {{72}}},
      {"a header only", Verdict::Acceptable, {{8}}},
      {"padded at the end", Verdict::Acceptable, {{69}}},
      {"two", Verdict::Acceptable, {{72}, {80}}},
      {"the last padded", Verdict::Acceptable, {{72}, {77}}},
      {"as many as may be", Verdict::Acceptable, entries(kMaxCertificateEntries)},
      {"one more", Verdict::Refused, entries(kMaxCertificateEntries + 1)},
      {"no type", Verdict::Refused, {{72, 0}}},
      {"an X.509 certificate", Verdict::Refused, {{72, 1}}},
      {"of another type before a good one", Verdict::Refused, {{72, 1}, {72}}},
      {"of another type behind a good one", Verdict::Refused, {{72}, {72, 1}}},
      {"a type of which only one byte is right", Verdict::Refused, {{72, 0x0102}}},
      {"shorter than its header", Verdict::Refused, {{7}}},
      {"no length", Verdict::Refused, {{0}}},
      {"no length behind a good one", Verdict::Refused, {{72}, {0}}},
      {"another where some would not look", Verdict::Refused, {{69}, {72}}},
  };
  for (const bool is64Bit : {false, true}) {
    for (const auto& [what, verdict, content] : table) {
      SCOPED_TRACE(what + std::string(is64Bit ? ", 64 bit" : ", 32 bit"));
      const CertificateTable judged = judge(ProgramImage(is64Bit, content).bytes);
      EXPECT_EQ(judged.verdict, verdict);
      EXPECT_EQ(judged.firstEntryBytes, verdict == Verdict::Acceptable ? content.front().length : 0);
    }
  }
}

TEST(CertificateTable, ChangedHeadersAndClaimsAreMissingOrRefused) {
  using Image = ProgramImage;
  const struct {
    const char* what;
    Verdict verdict;
    std::function<void(Image&)> change;
  } table[] = {
      {"no MZ", Verdict::Missing, [](Image& image) { image.bytes[0] = 'm'; }},
      {"headers outside", Verdict::Missing, [](Image& image) { put(image.bytes, 0x3C, 0xFFFFFFFF, 4); }},
      {"headers at the end", Verdict::Missing,
       [](Image& image) { put(image.bytes, 0x3C, image.bytes.size() - 3, 4); }},
      {"no PE", Verdict::Missing, [](Image& image) { image.bytes[Image::kHeaders + 3] = 1; }},
      {"no magic", Verdict::Missing, [](Image& image) { put(image.bytes, image.optionalHeader, 0x107, 2); }},
      {"four directories", Verdict::Missing,
       [](Image& image) { put(image.bytes, image.directories - 4, 4, 4); }},
      {"an empty file", Verdict::Missing, [](Image& image) { image.bytes.clear(); }},
      {"cut in the directory", Verdict::Missing,
       [](Image& image) { image.bytes.resize(image.directories + 4 * 8 + 7); }},
      {"no table", Verdict::Missing, [](Image& image) { image.claim(0, 0); }},
      {"an empty table", Verdict::Missing, [](Image& image) { image.claim(image.table(), 0); }},
      {"at the file's beginning", Verdict::Refused, [](Image& image) { image.claim(0, 72); }},
      {"in the headers", Verdict::Refused, [](Image& image) { image.claim(image.directories, 72); }},
      {"begins outside", Verdict::Refused, [](Image& image) { image.claim(image.bytes.size() + 8, 8); }},
      {"begins at the end", Verdict::Refused, [](Image& image) { image.claim(image.bytes.size(), 8); }},
      {"ends outside", Verdict::Refused, [](Image& image) { image.claim(image.table(), 80); }},
      {"wraps around", Verdict::Refused, [](Image& image) { image.claim(0xFFFFFFF8, 16); }},
      {"all there is", Verdict::Refused, [](Image& image) { image.claim(image.table(), 0xFFFFFFFF); }},
      {"smaller than its entry", Verdict::Refused, [](Image& image) { image.claim(image.table(), 64); }},
      {"room for half a header", Verdict::Refused, [](Image& image) { image.claim(image.table(), 4); }},
      {"cut file", Verdict::Refused, [](Image& image) { image.bytes.pop_back(); }},
      {"an entry beyond the table", Verdict::Refused,
       [](Image& image) { put(image.bytes, image.table(), 73, 4); }},
      {"an entry that claims everything", Verdict::Refused,
       [](Image& image) { put(image.bytes, image.table(), 0xFFFFFFFF, 4); }},
  };
  for (const bool is64Bit : {false, true}) {
    for (const auto& [what, verdict, change] : table) {
      SCOPED_TRACE(what + std::string(is64Bit ? ", 64 bit" : ", 32 bit"));
      Image image(is64Bit);
      change(image);
      EXPECT_EQ(judge(image.bytes).verdict, verdict);
    }
  }
}

TEST(CertificateTable, NoMoreThanSixteenMebibytesAreEverClaimedWhateverTheFileHolds) {
  constexpr std::uint64_t fileBytes = std::uint64_t{5} << 30U;
  for (const auto& [size, verdict] : {std::pair{kMaxCertificateTableBytes, Verdict::Acceptable},
                                      {kMaxCertificateTableBytes + 1, Verdict::Refused},
                                      {0xF0000000U, Verdict::Refused}}) {
    ProgramImage image(true);
    image.claim(image.table(), size);
    put(image.bytes, image.table(), size, 4);
    EXPECT_EQ(judge(image.bytes, fileBytes).verdict, verdict) << size;
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
