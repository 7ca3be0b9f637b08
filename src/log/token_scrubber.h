// Takes secrets out of log lines.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace zarn {

/// One thing that must not be readable in a log.
struct ScrubRule {
  std::string_view marker;  ///< what the secret follows; compared byte for byte
  std::size_t maskLength;   ///< at most so many bytes after the marker are masked
  /// Masked even where tokens may be read for debugging: a key of the crash reporter.
  bool isCrashKey = false;
};

/// In the order in which they are applied.
inline constexpr std::array<ScrubRule, 19> kScrubRules{{
    {"X-Zarn-Token=", 20},
    {"auth_token=", 20},
    {"X-Zarn-Token => ", 20},
    {"MyZarn: Adding ", 20},
    {"We found auth token (", 20},
    {"Checking permission for token ", 20},
    {"MyZarn: Stored token ", 20},
    {"X-Zarn-Token%3D", 20},
    {"authenticationToken=\"", 20},
    {"<authentication-token>", 20},
    {"token=", 20},
    {"unknownToken=", 20},
    {"X_ZARN_TOKEN=", 20},
    {"ZARNTOKEN=", 20},
    {"X-Zarn-Token: ", 20},
    {"token => ", 20},
    {"X-Zarn-Api-Token=", 20},
    {"sentryKey=", 32, true},
    {"sentry_key=", 32, true},
}};

inline constexpr char kScrubMask = 'x';

/// Overwrites with kScrubMask what follows each marker of kScrubRules, as if the
/// rules were applied one after another: after a marker, one quote character
/// is passed over, then up to the rule's mask length of bytes are masked, or as
/// many as there are. A longer value keeps its tail, a shorter one takes the bytes
/// behind it along. With `crashKeysOnly` just the keys of the crash reporter.
/// The length never changes and nothing is allocated. From any thread.
void scrubTokens(std::string& message, bool crashKeysOnly) noexcept;

}  // namespace zarn
