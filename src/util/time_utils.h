// Seconds since the epoch as calendar fields. The seconds 0 and -1 mean "no
// time" and never convert. All functions may be called from any thread.
#pragma once

#include <cstdint>
#include <ctime>

namespace zarn::TimeUtils {

/// Local time. What the C library cannot convert, or converts to fields that are
/// not valid, is converted by the date-time library, which knows no time zone:
/// such fields are in UTC and their daylight flag is -1. False, with all fields
/// zero, when that fails too (which is logged).
[[nodiscard]] bool epochToLocal(std::int64_t seconds, std::tm& out);

/// False, with all fields zero and one logged error, when it fails.
[[nodiscard]] bool epochToUtc(std::int64_t seconds, std::tm& out);

/// Whether the fields are within their ranges, for the years 0 to 9999. Leap
/// seconds are refused; minutes have no upper bound.
[[nodiscard]] bool validFields(const std::tm& fields) noexcept;

}  // namespace zarn::TimeUtils
