// What must not be readable in a log: the markers that secrets follow, and how
// many bytes after each are masked. Only for the scrubber and its tests.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace zarn {

struct ScrubRule {
  std::string_view marker;  ///< compared byte for byte
  std::size_t maskLength;   ///< at most so many bytes after the marker are masked
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
    {"sentryKey=", 32},
    {"sentry_key=", 32},
}};

/// From here to the end: keys of the crash reporter, masked even where tokens
/// may be read for debugging.
inline constexpr std::size_t kFirstCrashKeyRule = 17;

inline constexpr char kScrubMask = 'x';

}  // namespace zarn
