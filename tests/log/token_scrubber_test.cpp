#include "log/token_scrubber.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "log/reference_scrubber.h"
#include "util/logging.h"

namespace zarn {
namespace {

std::string scrubbed(std::string text, bool crashKeysOnly = false) {
  scrubTokens(text, crashKeysOnly);
  return text;
}

std::string masked(std::size_t count) {
  return std::string(count, 'x');
}

TEST(TokenScrubber, EveryMarkerAloneAndInALine) {
  const std::string value = "ABCDEFGHIJKLMNOPQRSTUVWX0123456789abcdef";
  for (std::size_t i = 0; i < kScrubRules.size(); ++i) {
    const auto& [marker, length] = kScrubRules[i];
    const std::string start(marker);
    EXPECT_EQ(scrubbed(start), start);
    EXPECT_EQ(scrubbed(start + value), start + masked(length) + value.substr(length));
    EXPECT_EQ(scrubbed(formatPrintf("GET /x?%s'%s", marker, value)),
              formatPrintf("GET /x?%s'%s%s", marker, masked(length), value.substr(length)));
    const bool isCrashKey = i >= kFirstCrashKeyRule;
    EXPECT_EQ(scrubbed(start + "abc", true), start + (isCrashKey ? "xxx" : "abc"));
  }
}

TEST(TokenScrubber, Edges) {
  EXPECT_EQ(scrubbed("/a?X-Zarn-Token=abc&x=1"), "/a?X-Zarn-Token=" + masked(7));
  EXPECT_EQ(scrubbed("token=\"'abc"), "token=\"xxxx");  // one quote only
  EXPECT_EQ(scrubbed("token=\""), "token=\"");
  EXPECT_EQ(scrubbed("Token=abc TOKEN=abc oken=abc"), "Token=abc TOKEN=abc oken=abc");
  EXPECT_EQ(scrubbed("token=" + masked(3) + "token=token=ABCDEFGHIJKLMNO"),
            "token=" + masked(20) + "FGHIJKLMNO");  // a marker under a mask is gone
}

/// Up to 200 bytes of markers, ends and beginnings of markers, quotes and noise.
std::string randomLine(std::mt19937_64& random) {
  static constexpr std::string_view noise = "abcxkKeEnNyYzZtT=> :%3D'\"(_-\0\xc3\xa4\xff\n";
  const std::size_t length = random() % 201;
  const std::size_t noisiness = random() % 24 + 1;
  std::string line;
  while (line.size() < length) {
    const std::string_view marker = kScrubRules[random() % kScrubRules.size()].marker;
    const std::size_t kind = random() % 5;
    if (kind <= 1) line += marker;
    if (kind == 1) line += "'\"-"[random() % 3];
    if (kind == 2) line += marker.substr(random() % marker.size());
    if (kind == 3) line += marker.substr(0, random() % marker.size());
    for (std::size_t i = random() % noisiness; i > 0; --i) line += noise[random() % noise.size()];
  }
  line.resize(length);
  return line;
}

TEST(TokenScrubber, EqualsRuleAfterRuleOnRandomLines) {
  const std::uint64_t seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 random(seed);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  for (std::size_t i = 0; std::chrono::steady_clock::now() < end; ++i) {
    const std::string line = randomLine(random);
    const bool crashKeysOnly = i % 4 == 0;
    std::string expected = line;
    testing::referenceScrub(expected, crashKeysOnly);
    ASSERT_EQ(scrubbed(line, crashKeysOnly), expected) << "line " << i << ": " << line;
  }
}

}  // namespace
}  // namespace zarn
