#include "update/install_record.h"

#include <fmt/format.h>

#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

#include "update/json_fields.h"
#include "util/printable.h"
#include "util/time_utils.h"

namespace zarn {
namespace {

using Json = nlohmann::ordered_json;

template <typename T>
Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json orNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
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
  Json checks = Json::array();
  for (const auto& [name, verdict, detail] : record.checks)
    checks.push_back({{"name", name}, {"verdict", verdict}, {"detail", detail}});
  return {{"time", record.time},
          {"caller",
           {{"sid", orNull(record.caller.sid)},
            {"processId", orNull(record.caller.processId)},
            {"image", orNull(record.caller.image)}}},
          {"path", record.path},
          {"size", orNull(record.size)},
          {"sha256", record.sha256},
          {"signerDigest", record.signerDigest},
          {"signerSubject", record.signerSubject},
          {"checks", std::move(checks)},
          {"reason", orNull(record.reason)},
          {"status", numberOf(record.status)},
          {"exitCode", orNull(record.exitCode)},
          {"installerStarted", orNull(record.installerStarted)},
          {"durationMs", orNull(record.durationMilliseconds)},
          {"product", record.product},
          {"productVersion", record.productVersion}};
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
  return toJson(shortened).dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string installingText(const InstallRecord& record, std::uint32_t processId) {
  const Json object = {{"since", record.time},
                       {"processId", processId},
                       {"path", printable(cutText(record.path, kLongestRecordedText))}};
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
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
