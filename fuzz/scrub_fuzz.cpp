// The fast scrubber masks exactly what the rules, applied one after another, would.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "log/token_scrubber.h"

namespace {

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool crashKeysOnly = (data[0] & 1U) != 0;
  std::string fast(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::string slow = fast;
  zarn::scrubTokens(fast, crashKeysOnly);
  scrubRuleAfterRule(slow, crashKeysOnly);
  if (fast != slow) std::abort();
  return 0;
}
