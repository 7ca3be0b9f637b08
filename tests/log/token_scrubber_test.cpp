#include "log/token_scrubber.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "log/reference_scrubber.h"

namespace zarn {
namespace {

std::string scrubbed(std::string text, bool crashKeysOnly = false) {
  scrubTokens(text, crashKeysOnly);
  return text;
}

TEST(TokenScrubber, MasksWhatFollowsEveryMarker) {
  const std::string value = "ABCDEFGHIJKLMNOPQRSTUVWX0123456789abcdef";
  for (const auto& [marker, length, _] : kScrubRules) {
    const std::string start(marker);
    const std::string masked(length, 'x');
    EXPECT_EQ(scrubbed(start), start);
    EXPECT_EQ(scrubbed(start + value), start + masked + value.substr(length));
    EXPECT_EQ(scrubbed(start + "abc", true), start + (start.starts_with("sentry") ? "xxx" : "abc"));
  }
}

/// Beginnings, ends and middles of markers, quotes and noise.
std::string randomLine(std::mt19937_64& random) {
  static constexpr std::string_view noise = "abcxkKeEnNyYzZtT=> :%3D'\"(_-\0\xc3\xa4\xff\n";
  std::string line;
  for (std::size_t piece = random() % 12; piece > 0; --piece) {
    const std::string_view marker = kScrubRules[random() % kScrubRules.size()].marker;
    line += marker.substr(random() % 3 == 0 ? random() % marker.size() : 0,
                          random() % 3 == 0 ? 5 : marker.size());
    for (std::size_t i = random() % 24; i > 0; --i) line += noise[random() % noise.size()];
  }
  return line;
}

TEST(TokenScrubber, EqualsRuleAfterRuleOnRandomLines) {
  const std::uint64_t seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 random(seed);
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
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
