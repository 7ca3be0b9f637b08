#include "update/install_record.h"

#include <fmt/format.h>

#include <ctime>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

#include "update/json_fields.h"
#include "util/printable.h"
#include "util/time_utils.h"

namespace zarn {
namespace {

using Json = nlohmann::ordered_json;

// Lines are put together as texts: an object of the library needs memory to be destroyed, and
// ends the process when there is none.

std::string textOf(const std::string& text) {
  return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}
std::string textOf(bool value) {
  return value ? "true" : "false";
}
template <typename Number>
std::string textOf(Number number) requires std::is_integral_v<Number> {
  return std::to_string(number);
}
template <typename T>
std::string textOf(const std::optional<T>& value) {
  return value ? textOf(*value) : "null";
}
std::string textOrNull(const std::string& text) {
  return text.empty() ? "null" : textOf(text);
}

/// An object of texts that are JSON already.
std::string objectText(std::initializer_list<std::pair<const char*, std::string>> members) {
  std::string result;
  for (const auto& [name, value] : members)
    result += fmt::format("{}\"{}\":{}", result.empty() ? "" : ",", name, value);
  return "{" + result + "}";
}

std::string textOf(const CheckRecord& check) {
  return objectText(
      {{"name", textOf(check.name)}, {"verdict", textOf(check.verdict)}, {"detail", textOf(check.detail)}});
}

/// Every key with all of its text.
std::string textOf(const InstallRecord& record) {
  std::string checks;
  for (const CheckRecord& check : record.checks) checks += (checks.empty() ? "" : ",") + textOf(check);
  return objectText({{"time", textOf(record.time)},
                     {"caller", objectText({{"sid", textOrNull(record.caller.sid)},
                                            {"processId", textOf(record.caller.processId)},
                                            {"image", textOrNull(record.caller.image)}})},
                     {"path", textOf(record.path)},
                     {"size", textOf(record.size)},
                     {"sha256", textOf(record.sha256)},
                     {"signerDigest", textOf(record.signerDigest)},
                     {"signerSubject", textOf(record.signerSubject)},
                     {"checks", "[" + checks + "]"},
                     {"reason", textOrNull(record.reason)},
                     {"status", textOf(numberOf(record.status))},
                     {"exitCode", textOf(record.exitCode)},
                     {"installerStarted", textOf(record.installerStarted)},
                     {"durationMs", textOf(record.durationMilliseconds)},
                     {"product", textOf(record.product)},
                     {"productVersion", textOf(record.productVersion)}});
}

std::optional<bool> flagAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_boolean() ? std::optional(found->get<bool>()) : std::nullopt;
}

/// Entries that are no objects are passed over, as keys are that are not known.
std::vector<CheckRecord> checksOf(const Json& object) {
  std::vector<CheckRecord> result;
  const auto checks = object.find("checks");
  if (checks == object.end() || !checks->is_array()) return result;
  for (const Json& check : *checks) {
    if (check.is_object())
      result.push_back({textAt(check, "name"), textAt(check, "verdict"), textAt(check, "detail")});
  }
  return result;
}

Caller callerOf(const Json& object) {
  const auto caller = object.find("caller");
  if (caller == object.end() || !caller->is_object()) return {};
  return {textAt(*caller, "sid"), numberAt<std::uint32_t>(*caller, "processId"), textAt(*caller, "image")};
}

}  // namespace

InstallRecord::InstallRecord() {
  checks.reserve(kCheckNames.size());
  for (const std::string_view name : kCheckNames)
    checks.push_back({std::string(name), std::string(nameOf(Verdict::NotReached)), {}});
}

bool InstallRecord::note(Check check, Verdict verdict, std::string detail) {
  CheckRecord& noted = checks.at(static_cast<std::size_t>(check));
  noted.verdict = nameOf(verdict);
  noted.detail = std::move(detail);
  return verdict == Verdict::Passed;
}

std::string isoTime(std::chrono::system_clock::time_point time) {
  const auto since = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
  std::tm fields{};
  static_cast<void>(TimeUtils::epochToUtc(seconds.count(), fields));
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", fields.tm_year + 1900, fields.tm_mon + 1,
                     fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec, (since - seconds).count());
}

Json toJson(const InstallRecord& record) {
  return Json::parse(textOf(record));
}

std::string recordLine(const InstallRecord& record) {
  // A record is written while its request holds the next one up, and its file is bounded:
  // the texts of others must cost neither time nor room without end.
  InstallRecord shortened = record;
  const auto cut = [](std::string& text) { text = cutText(text, kLongestRecordedText); };
  for (CheckRecord& check : shortened.checks) cut(check.detail);
  for (std::string* const text : {&shortened.caller.image, &shortened.path, &shortened.signerSubject,
                                  &shortened.product, &shortened.productVersion}) {
    cut(*text);
  }
  return textOf(shortened) + "\n";
}

std::string installingText(const InstallRecord& record, std::uint32_t processId) {
  return objectText({{"since", textOf(record.time)},
                     {"processId", textOf(processId)},
                     {"path", textOf(printable(cutText(record.path, kLongestRecordedText)))}}) +
         "\n";
}

std::optional<InstallRecord> parseRecord(std::string_view line) {
  // The parser neither throws here nor recurses, so that no depth of brackets ends it.
  const Json object = Json::parse(line, nullptr, false);
  if (!object.is_object()) return std::nullopt;
  const auto status = numberAt<std::int32_t>(object, "status");
  InstallRecord record;
  record.time = textAt(object, "time");
  if (!status || record.time.empty()) return std::nullopt;
  record.status = static_cast<Status>(*status);
  record.caller = callerOf(object);
  record.path = textAt(object, "path");
  record.size = numberAt<std::uint64_t>(object, "size");
  record.sha256 = textAt(object, "sha256");
  record.signerDigest = textAt(object, "signerDigest");
  record.signerSubject = textAt(object, "signerSubject");
  record.checks = checksOf(object);
  record.reason = textAt(object, "reason");
  record.exitCode = numberAt<std::uint32_t>(object, "exitCode");
  record.installerStarted = flagAt(object, "installerStarted");
  record.durationMilliseconds = numberAt<std::int64_t>(object, "durationMs");
  record.product = textAt(object, "product");
  record.productVersion = textAt(object, "productVersion");
  return record;
}

}  // namespace zarn
