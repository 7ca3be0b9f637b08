// Scrubbing written down rule after rule: what the product's fast one is measured by.
#pragma once

#include <algorithm>
#include <string>

#include "log/token_scrubber.h"

namespace zarn::testing {

inline void referenceScrub(std::string& message, bool crashKeysOnly) {
  for (const auto& [marker, maskLength, isCrashKey] : kScrubRules) {
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

}  // namespace zarn::testing
