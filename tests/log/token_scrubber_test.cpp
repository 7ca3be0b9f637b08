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
    EXPECT_EQ(scrubbed("GET /x?" + start + "'" + value),
              "GET /x?" + start + "'" + masked(length) + value.substr(length));
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

/// Lines made of markers, halves of markers, quotes and noise.
class LineMaker {
 public:
  explicit LineMaker(std::uint64_t seed) : random_(seed) {}

  std::string operator()() {
    const std::size_t length = below(201);
    const std::size_t density = below(4);
    std::string line;
    while (line.size() < length) append(line, density);
    line.resize(length);
    return line;
  }
  std::size_t below(std::size_t bound) { return random_() % bound; }

 private:
  void append(std::string& line, std::size_t density) {
    static constexpr std::string_view noise = "abcxkKeEnNyYzZtT=> :%3D'\"(_-\0\xc3\xa4\xff\n";
    const std::string_view marker = kScrubRules[below(kScrubRules.size())].marker;
    const std::size_t kind = below(8);
    if (kind < density) {
      line += marker;
      if (below(3) == 0) line += below(2) == 0 ? '\'' : '"';
    } else if (kind == 4) {
      line += marker.substr(below(marker.size()));
    } else if (kind == 5) {
      line += marker.substr(0, below(marker.size()));
    } else {
      for (std::size_t i = below(24); i > 0; --i) line += noise[below(noise.size())];
    }
  }

  std::mt19937_64 random_;
};

TEST(TokenScrubber, EqualsRuleAfterRuleOnRandomLines) {
  const std::uint64_t seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  LineMaker make(seed);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  std::size_t changed = 0;
  for (std::size_t i = 0; std::chrono::steady_clock::now() < end; ++i) {
    const std::string line = make();
    const bool crashKeysOnly = i % 4 == 0;
    std::string expected = line;
    testing::referenceScrub(expected, crashKeysOnly);
    ASSERT_EQ(scrubbed(line, crashKeysOnly), expected) << "line " << i << ": " << line;
    if (expected != line) ++changed;
  }
  EXPECT_GT(changed, 100U) << "the lines must exercise the rules";
}

}  // namespace
}  // namespace zarn
