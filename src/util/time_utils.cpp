#include "util/time_utils.h"

#include <boost/date_time/posix_time/conversion.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <exception>
#include <limits>

#include "os/clock.h"
#include "util/logging.h"

namespace zarn::TimeUtils {
namespace {

namespace posix_time = boost::posix_time;
using boost::gregorian::date;

// In the messages below the seconds are "%lld": a "%ld" would cut them to 32 bits on Windows.

bool isNoTime(std::int64_t seconds) noexcept {
  return seconds == 0 || seconds == -1;
}

bool isAllZero(const std::tm& fields) noexcept {
  return fields.tm_sec == 0 && fields.tm_min == 0 && fields.tm_hour == 0 && fields.tm_mday == 0 &&
         fields.tm_mon == 0 && fields.tm_year == 0 && fields.tm_wday == 0 && fields.tm_yday == 0 &&
         fields.tm_isdst == 0;
}

/// The time point in microseconds; the library's infinities where 64 bits do not
/// hold it. Throws the library's exception for years that it does not know: asked
/// for the fields of such a time, it would wrap the year at 16 bits.
posix_time::ptime toTimePoint(std::int64_t seconds) {
  const posix_time::ptime epoch(date(1970, 1, 1));
  constexpr std::int64_t microsecondsPerSecond = 1'000'000;
  constexpr std::int64_t limit = std::numeric_limits<std::int64_t>::max() / microsecondsPerSecond;
  if (seconds >= limit) return posix_time::ptime(posix_time::pos_infin);
  if (seconds <= -limit) return posix_time::ptime(posix_time::neg_infin);

  const auto first = (posix_time::ptime(date(boost::gregorian::min_date_time)) - epoch).total_seconds();
  const auto last = (posix_time::ptime(date(boost::gregorian::max_date_time)) - epoch).total_seconds();
  if (seconds < first || seconds >= last + 24 * 60 * 60) throw boost::gregorian::bad_year();
  return epoch + posix_time::microseconds(seconds * microsecondsPerSecond);
}

bool convertWithLibrary(std::int64_t seconds, std::tm& out) {
  try {
    out = posix_time::to_tm(toTimePoint(seconds));
    return !isAllZero(out);
  } catch (const std::exception& error) {
    logLine(LogLevel::Error, "[Time] `boost::posix_time`: %s", error.what());
    out = std::tm{};
    return false;
  }
}

}  // namespace

// Not every C library refuses what it cannot convert: some answer with fields out of range.
bool validFields(const std::tm& fields) noexcept {
  const auto within = [](int value, int low, int high) { return value >= low && value <= high; };
  if (!within(fields.tm_sec, 0, 59)) return false;
  if (fields.tm_min < 0) return false;
  if (!within(fields.tm_hour, 0, 23)) return false;
  if (!within(fields.tm_mday, 1, 31)) return false;
  if (!within(fields.tm_mon, 0, 11)) return false;
  if (!within(fields.tm_wday, 0, 6)) return false;
  if (!within(fields.tm_yday, 0, 365)) return false;
  if (!within(fields.tm_year, -1900, 9999 - 1900)) return false;
  return fields.tm_yday != 0 || (fields.tm_mday == 1 && fields.tm_mon == 0);
}

bool epochToLocal(std::int64_t seconds, std::tm& out) {
  out = std::tm{};
  if (isNoTime(seconds)) return false;
  if (!os::localTime(seconds, out)) {
    out = std::tm{};  // what a failed conversion left is no time
  } else if (validFields(out)) {
    return !isAllZero(out);
  }
  logLine(LogLevel::Verbose, "[Time] Falling back to boost::posix_time while converting '%lld' from epoch.",
          seconds);
  return convertWithLibrary(seconds, out);
}

bool epochToUtc(std::int64_t seconds, std::tm& out) {
  if (!isNoTime(seconds) && os::utcTime(seconds, out)) return !isAllZero(out);
  logLine(LogLevel::Error, "[Time] Failed to convert '%lld' from epoch to GMT.", seconds);
  out = std::tm{};
  return false;
}

}  // namespace zarn::TimeUtils
