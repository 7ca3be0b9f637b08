// Points in time as people type them. All of them are UTC.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace zarn::tool {

/// The forms that momentFrom() reads, for a sentence.
inline constexpr char kMomentForms[] = "2026-11-21, 2026-11-21T10:15:00Z or, before now, 7d or 24h";

/// A day (its beginning), a day and a time with or without seconds and "Z", or a number of
/// minutes ("m"), hours ("h"), days ("d") or weeks ("w") before `now`; 1970-01-02 for what is
/// earlier. Nothing for another text and for a day that is not in the calendar.
[[nodiscard]] std::optional<std::chrono::system_clock::time_point> momentFrom(
    std::string_view text, std::chrono::system_clock::time_point now);

/// A time that isoTime() wrote, earlier by so many hours, as it would write it. As it was
/// when it is none.
[[nodiscard]] std::string momentBefore(const std::string& time, std::chrono::hours hours);

}  // namespace zarn::tool
