// The fast scrubber masks exactly what the rules, applied one after another, would.
#include <algorithm>

#include "fuzz.h"
#include "log/token_scrubber.h"

namespace {

using zarn::fuzz::require;

void scrubRuleAfterRule(std::string& message, bool crashKeysOnly) {
  for (const auto& [marker, maskLength, isCrashKey] : zarn::kScrubRules) {
    if (crashKeysOnly && !isCrashKey) continue;
    std::size_t at = 0;
    while ((at = message.find(marker, at)) != std::string::npos) {
      at += marker.size();
      if (at < message.size() && (message[at] == '\'' || message[at] == '"')) ++at;
      const std::size_t length = std::min(message.size() - at, maskLength);
      message.replace(at, length, length, 'x');
      at += length;
    }
  }
}

void judgeScrubbing(const std::string& text) {
  const bool crashKeysOnly = text.size() % 2 != 0;
  std::string fast = text, slow = text;
  zarn::scrubTokens(fast, crashKeysOnly);
  scrubRuleAfterRule(slow, crashKeysOnly);
  require(fast == slow);
}

const zarn::fuzz::Target kScrub("scrub", judgeScrubbing);

}  // namespace
