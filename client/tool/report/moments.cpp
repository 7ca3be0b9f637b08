#include "client/tool/report/moments.h"

#include <algorithm>
#include <cstdint>

#include "os/text.h"
#include "update/install_record.h"

namespace zarn::tool {
namespace {

using Moment = std::chrono::system_clock::time_point;

/// Of the very first seconds no time can be made.
constexpr Moment kEarliest = std::chrono::sys_days(std::chrono::days(1));

/// A hundred years; more is as good as no bound.
constexpr std::uint32_t kMostDays = 36'500;

/// The number that `digits` characters at `at` spell.
std::optional<int> numberAt(std::string_view text, std::size_t at, std::size_t digits) {
  const std::string_view part = text.substr(std::min(at, text.size()), digits);
  const auto number = os::parseNumber<std::uint16_t>(part);
  return part.size() == digits && number ? std::optional<int>(*number) : std::nullopt;
}

/// "2026-11-21".
std::optional<std::chrono::sys_days> dayFrom(std::string_view text) {
  const auto year = numberAt(text, 0, 4), month = numberAt(text, 5, 2), day = numberAt(text, 8, 2);
  if (text.size() != 10 || text[4] != '-' || text[7] != '-' || !year || !month || !day) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  const bool isKnown = date.ok() && *year >= 1970;
  return isKnown ? std::optional(std::chrono::sys_days(date)) : std::nullopt;
}

/// "10:15", "10:15:00" and "10:15:00.007", of which the last part is passed over.
std::optional<std::chrono::seconds> timeOfDayFrom(std::string_view text) {
  const bool hasSeconds = text.size() > 5;
  const auto hour = numberAt(text, 0, 2), minute = numberAt(text, 3, 2);
  const auto second = hasSeconds ? numberAt(text, 6, 2) : std::optional(0);
  if (!hour || !minute || !second || text[2] != ':' || (hasSeconds && text[5] != ':')) return std::nullopt;
  const bool hasMore = text.size() > 8;
  if (hasMore && (text[8] != '.' || !numberAt(text, 9, 3) || text.size() != 12)) return std::nullopt;
  if (*hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
  return std::chrono::seconds((*hour * 60 + *minute) * 60 + *second);
}

/// "7d".
std::optional<Moment> spanBefore(std::string_view text, Moment now) {
  const std::string_view units = "mhdw";
  constexpr std::int64_t secondsOf[] = {60, 3600, 86'400, 7 * 86'400};
  const std::size_t unit = text.empty() ? std::string_view::npos : units.find(os::lowerCase(text.back()));
  if (unit == std::string_view::npos) return std::nullopt;
  const auto count = os::parseNumber<std::uint32_t>(text.substr(0, text.size() - 1));
  if (!count) return std::nullopt;
  const std::int64_t span = std::min<std::int64_t>(*count * secondsOf[unit], kMostDays * secondsOf[2]);
  return now - std::chrono::seconds(span);
}

std::optional<Moment> momentOf(std::string_view text, Moment now) {
  if (const auto moment = spanBefore(text, now)) return moment;
  if (text.ends_with('Z') || text.ends_with('z')) text.remove_suffix(1);
  const auto day = dayFrom(text.substr(0, 10));
  if (!day || text.size() == 10) return day ? std::optional<Moment>(*day) : std::nullopt;
  const bool isSeparated = text[10] == 'T' || text[10] == 't' || text[10] == ' ';
  const auto time = isSeparated ? timeOfDayFrom(text.substr(11)) : std::nullopt;
  return time ? std::optional<Moment>(*day + *time) : std::nullopt;
}

}  // namespace

std::optional<Moment> momentFrom(std::string_view text, Moment now) {
  const auto moment = momentOf(text, now);
  return moment ? std::optional(std::max(*moment, kEarliest)) : std::nullopt;
}

std::string momentBefore(const std::string& time, std::chrono::hours hours) {
  const auto moment = momentFrom(time, {});
  return moment ? isoTime(std::max(*moment - hours, kEarliest)) : time;
}

}  // namespace zarn::tool
