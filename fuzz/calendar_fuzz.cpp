// Seconds as calendar fields and back, in every zone that this system knows: the fields are
// those of plain arithmetic, in UTC and by the zone's distance from it.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.h"
#include "os/clock.h"
#include "util/time_utils.h"

namespace {

using zarn::fuzz::require;
using namespace std::chrono;

constexpr std::int64_t kDay = 86'400;

std::int64_t daysOf(const std::tm& fields) {
  const year_month_day date{year(fields.tm_year + 1900), month(static_cast<unsigned>(fields.tm_mon + 1)),
                            day(static_cast<unsigned>(fields.tm_mday))};
  require(date.ok());
  const sys_days days(date);
  require(fields.tm_yday == (days - sys_days(date.year() / January / 1)).count());
  require(static_cast<unsigned>(fields.tm_wday) == weekday(days).c_encoding());
  return days.time_since_epoch().count();
}

/// The library's calendar knows these years.
bool isKnown(const std::tm& fields) {
  return fields.tm_year > -30'000 && fields.tm_year < 30'000;
}

std::int64_t secondsOf(const std::tm& fields) {
  return daysOf(fields) * kDay + fields.tm_hour * 3600 + fields.tm_min * 60 + fields.tm_sec;
}

bool isZero(const std::tm& fields) {
  return fields.tm_year == 0 && fields.tm_mon == 0 && fields.tm_mday == 0 && fields.tm_hour == 0 &&
         fields.tm_min == 0 && fields.tm_sec == 0;
}

/// In the zone that is set.
void judgeSeconds(std::int64_t seconds) {
  std::tm utc{}, local{}, read{};
  const bool isTime = seconds != 0 && seconds != -1;
  const bool isCommon = seconds > 0 && seconds < 32'000'000'000;  // of every C library
  const bool isUtc = zarn::TimeUtils::epochToUtc(seconds, utc);
  require(isUtc ? isTime && (!isKnown(utc) || secondsOf(utc) == seconds)
                : isZero(utc) && !(isTime && isCommon));
  if (zarn::os::localTime(seconds, read) && isKnown(read)) {
    const std::int64_t distance = secondsOf(read) - seconds;
    require(distance > -27 * 3600 && distance < 27 * 3600);
#ifndef _WIN32
    require(distance == read.tm_gmtoff);
    // Of an hour that there was twice the other one may be answered.
    std::tm again = read;
    require(zarn::os::localTime(std::mktime(&again), again) && secondsOf(again) == secondsOf(read));
#endif
  }
  if (!zarn::TimeUtils::epochToLocal(seconds, local)) return require(isZero(local) && !(isTime && isCommon));
  require(isTime && local.tm_year >= -1900 && local.tm_year <= 9999 - 1900);
  // What the C library cannot tell is told in UTC.
  require(std::memcmp(&local, &read, offsetof(std::tm, tm_isdst)) == 0 ||
          (local.tm_isdst == -1 && secondsOf(local) == seconds));
}

#ifndef _WIN32
constexpr char kZones[] = "/usr/share/zoneinfo/";

void setZone(const std::string& name) {
  static std::string current;
  if (current == name) return;
  current = name;
  ::setenv("TZ", (":" + name).c_str(), 1);
  ::tzset();
}

std::int64_t numberAt(const std::string& bytes, std::size_t at, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < size; ++i) number = number << 8U | static_cast<std::uint8_t>(bytes.at(at + i));
  return static_cast<std::int64_t>(number);
}

/// When the zone's clocks were put, from the second part of its file: RFC 8536.
std::vector<std::int64_t> changesIn(const std::string& zone) {
  constexpr std::size_t header = 44, kinds = 6, firstCount = 20;
  const std::int64_t sizes[kinds] = {1, 1, 8, 5, 6, 1};  // behind the first part's header
  std::size_t second = header;
  for (std::size_t i = 0; i < kinds; ++i)
    second += static_cast<std::size_t>(sizes[i] * numberAt(zone, firstCount + 4 * i, 4));
  std::vector<std::int64_t> changes(static_cast<std::size_t>(numberAt(zone, second + 32, 4)));
  for (std::size_t i = 0; i < changes.size(); ++i) changes[i] = numberAt(zone, second + header + 8 * i, 8);
  return changes;
}

/// Every zone, whose every change is judged with the seconds around it.
std::vector<std::string> judgedZones() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(kZones)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string zone((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!zone.starts_with("TZif2") && !zone.starts_with("TZif3")) continue;
    if (entry.path().string().find("/right/") != std::string::npos) continue;  // with leap seconds
    names.push_back(entry.path().string());
    setZone(names.back());
    for (const std::int64_t change : changesIn(zone))
      for (std::int64_t near = change - 1; near <= change + 1; ++near) judgeSeconds(near);
  }
  std::ranges::sort(names);
  require(names.size() > 400);
  return names;
}
#endif

void judgeCalendar(const std::string& input) {
  zarn::fuzz::Taking taking(input);
  const std::size_t zone = taking.byte() * std::size_t{256} + taking.byte();
#ifndef _WIN32
  static const std::vector<std::string> zones = judgedZones();
  setZone(zones[zone % 64 == 0 ? zone / 64 % zones.size() : 0]);  // reading one takes its time
#endif
  std::int64_t seconds = 0;
  const std::string bytes = taking.text(sizeof(seconds));
  std::memcpy(&seconds, bytes.data(), bytes.size());
  judgeSeconds(seconds);
  judgeSeconds(seconds >> (20 + zone % 32));
}

const zarn::fuzz::Target kCalendar("calendar", judgeCalendar);

}  // namespace
