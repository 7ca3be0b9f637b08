// The certificate profile comes from the network: what a second reader of JSON finds in it
// is what it approves.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "fuzz.h"
#include "trust/certificate_profile.h"

namespace {

using Json = nlohmann::json;
using zarn::fuzz::require;

struct ProfileReading {
  bool isAccepted = false;
  bool hasList = false;
  int depth = 0;             ///< of brackets in each other
  std::vector<Json> values;  ///< of the first "certs" of the whole; null for what has values itself
};

ProfileReading readProfile(const std::string& body) {
  using Event = Json::parse_event_t;
  ProfileReading reading;
  bool isInList = false;
  const auto take = [&](int level, Event event, Json& parsed) {
    const bool isBegin = event == Event::object_start || event == Event::array_start;
    const bool isEnd = event == Event::object_end || event == Event::array_end;
    reading.depth = std::max(reading.depth, level + (isBegin ? 1 : 0));
    if (isInList && level == 2 && (isEnd || event == Event::value))
      reading.values.push_back(isEnd ? Json() : parsed);
    if (level == 2 && event == Event::value && parsed.is_null() && isInList) reading.values.back() = "null";
    if (level == 1 && (isEnd || event == Event::value)) isInList = false;
    if (level != 1 || event != Event::key || parsed != "certs" || reading.hasList) return true;
    isInList = reading.hasList = true;
    return true;
  };
  // A zero is an end to this reader.
  reading.isAccepted = body.find('\0') == std::string::npos && Json::parse(body, take, false).is_object();
  return reading;
}

void compare(const std::vector<Json>& values, const zarn::ApprovedDigests& digests) {
  zarn::ApprovedDigests texts;
  std::vector<Json> numbers;
  for (const Json& one : values) {
    if (one.is_number())
      numbers.push_back(one);
    else
      texts.insert(one.is_null() ? "" : one.is_string() ? one.get<std::string>() : one.dump());
  }
  for (const std::string& text : texts) require(digests.contains(text));
  for (const Json& number : numbers)
    require(std::ranges::any_of(digests,
                                [&](auto& text) { return Json::parse(text, nullptr, false) == number; }));
  for (const std::string& digest : digests)
    require(texts.contains(digest) || std::ranges::count(numbers, Json::parse(digest, nullptr, false)) > 0);
}

void judgeProfile(const std::string& body) {
  const auto digests = zarn::parseCertificateProfile(body);
  // What is escaped stands there otherwise.
  for (const auto& digest : digests.value_or(zarn::ApprovedDigests()))
    require(body.find('\\') != std::string::npos || body.find(digest) != std::string::npos);
  const ProfileReading reading = readProfile(body);
  if (!reading.isAccepted) return;
  require(digests.has_value() == (reading.hasList && reading.depth <= zarn::kMaxProfileNesting));
  if (digests) compare(reading.values, *digests);
}

const zarn::fuzz::Target kProfile("profile", judgeProfile);

}  // namespace
