#include "log/token_scrubber.h"

#include <gtest/gtest.h>

#include <tuple>

namespace zarn {
namespace {

std::string scrubbed(std::string text, bool crashKeysOnly = false) {
  scrubTokens(text, crashKeysOnly);
  return text;
}

TEST(TokenScrubber, MasksWhatFollowsEveryMarkerWhereverItStands) {
  const std::string value = "ABCDEFGHIJKLMNOPQRSTUVWX0123456789abcdef" + std::string(60, 'n');
  for (const auto& [marker, length, isCrashKey] : kScrubRules) {
    for (std::size_t column = 0; column < 130; ++column) {  // in all places of the blocks that are searched
      for (const char* const quote : {"", "'", "\""}) {
        const std::string start = std::string(column, 'n').append(marker) + quote;
        for (const std::size_t behind : {0U, 1U, 31U, 100U}) {
          const std::string masked(std::min(behind, length), 'x');
          const std::string text = start + value.substr(0, behind);
          ASSERT_EQ(scrubbed(text), start + masked + text.substr(start.size() + masked.size()));
          ASSERT_EQ(scrubbed(text, true), isCrashKey ? scrubbed(text) : text);
        }
      }
    }
  }
}

TEST(TokenScrubber, AppliesRuleAfterRuleToEveryOccurrence) {
  const std::string mask(20, 'x');
  for (const auto& [text, expected] :
       {std::pair{"token=sentry_key=ABCDEFGHIJKLMNOP", "token=" + mask + "JKLMNOP"},
        {"sentry_key=token=1 token=2", "sentry_key=" + std::string(15, 'x')},
        {"Token=1 toke=2 tokentoken=ABCDEFGHIJKLMNOPQRSTtoken=''",
         "Token=1 toke=2 tokentoken=" + mask + "token='x"}})
    EXPECT_EQ(scrubbed(text), expected);
}

}  // namespace
}  // namespace zarn
