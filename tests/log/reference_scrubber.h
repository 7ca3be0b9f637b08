// Scrubbing written down rule after rule: what the product's fast one is measured by.
#pragma once

#include <algorithm>
#include <string>

#include "log/scrub_rules.h"

namespace zarn::testing {

inline void referenceScrub(std::string& message, bool crashKeysOnly) {
  for (std::size_t rule = crashKeysOnly ? kFirstCrashKeyRule : 0; rule < kScrubRules.size(); ++rule) {
    const auto& [marker, maskLength] = kScrubRules[rule];
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

}  // namespace zarn::testing
