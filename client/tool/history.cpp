#include "client/tool/history.h"

#include <algorithm>
#include <iterator>

#include "client/tool/explanations.h"
#include "client/tool/text.h"
#include "os/error_text.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

std::string textAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

template <typename Number>
std::optional<Number> numberAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_integer()) return std::nullopt;
  // Signed and unsigned writings of one 32-bit code mean the same.
  return static_cast<Number>(found->get<std::int64_t>());
}

std::vector<CheckRecord> checksOf(const Json& object) {
  std::vector<CheckRecord> result;
  const auto checks = object.find("checks");
  if (checks == object.end() || !checks->is_array()) return result;
  for (const Json& check : *checks) {
    if (check.is_object()) {
      result.push_back({textAt(check, "name"), textAt(check, "verdict"), textAt(check, "detail")});
    }
  }
  return result;
}

CallerRecord callerOf(const Json& object) {
  const auto caller = object.find("caller");
  if (caller == object.end() || !caller->is_object()) return {};
  return {textAt(*caller, "sid"), numberAt<std::uint32_t>(*caller, "processId"), textAt(*caller, "image")};
}

/// Nothing for a line that is not a record.
std::optional<UpdateRecord> parseLine(std::string_view line) {
  const Json object = Json::parse(line, nullptr, false);
  if (!object.is_object()) return std::nullopt;
  const auto status = numberAt<std::int32_t>(object, "status");
  UpdateRecord record;
  record.time = textAt(object, "time");
  if (!status || record.time.empty()) return std::nullopt;
  record.status = *status;
  record.caller = callerOf(object);
  record.path = textAt(object, "path");
  record.size = numberAt<std::uint64_t>(object, "size");
  record.sha256 = textAt(object, "sha256");
  record.signerDigest = textAt(object, "signerDigest");
  record.signerSubject = textAt(object, "signerSubject");
  record.checks = checksOf(object);
  record.reason = textAt(object, "reason");
  record.exitCode = numberAt<std::uint32_t>(object, "exitCode");
  record.durationMs = numberAt<std::int64_t>(object, "durationMs");
  record.product = textAt(object, "product");
  record.productVersion = textAt(object, "productVersion");
  return record;
}

std::string fileNameOf(const std::string& path) {
  const std::size_t separator = path.find_last_of("\\/");
  return separator == std::string::npos ? path : path.substr(separator + 1);
}

std::string outcomeOf(const UpdateRecord& record) {
  if (!record.reason.empty()) return "not begun: " + record.reason;
  const CheckRecord* const check = decidingCheck(record);
  if (check != nullptr) return check->verdict + " at " + check->name;
  switch (record.status) {
    case 0:
      return "installed";
    case 30000:
      return "installed, reboot required";
    case 30001:
      return "installed, reboot began";
    default:
      return "failed";
  }
}

/// "S-1-5-21-..., media-server.exe", of which either may be unknown.
std::string callerText(const CallerRecord& caller) {
  std::string program = fileNameOf(caller.image);
  if (program.empty() && caller.processId) program = "process " + std::to_string(*caller.processId);
  if (caller.sid.empty() && program.empty()) return "-";
  const bool both = !caller.sid.empty() && !program.empty();
  return caller.sid + (both ? ", " : "") + program;
}

Json orNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

template <typename T>
Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

}  // namespace

History parseHistory(std::string_view text) {
  History history;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    if (auto record = parseLine(line)) {
      history.records.push_back(std::move(*record));
    } else {
      ++history.skipped;
    }
  }
  return history;
}

History mergeByTime(History one, History other) {
  History merged;
  merged.skipped = one.skipped + other.skipped;
  std::merge(std::make_move_iterator(one.records.begin()), std::make_move_iterator(one.records.end()),
             std::make_move_iterator(other.records.begin()), std::make_move_iterator(other.records.end()),
             std::back_inserter(merged.records),
             [](const UpdateRecord& left, const UpdateRecord& right) { return left.time < right.time; });
  return merged;
}

const CheckRecord* decidingCheck(const UpdateRecord& record) noexcept {
  // Whatever was not looked at then, or is not known here, let it be run.
  if (record.exitCode) return nullptr;
  const auto check = std::find_if(record.checks.begin(), record.checks.end(),
                                  [](const CheckRecord& one) { return one.verdict != "passed"; });
  return check == record.checks.end() ? nullptr : &*check;
}

std::string historyTable(const std::vector<UpdateRecord>& records) {
  std::vector<std::vector<std::string>> rows;
  rows.reserve(records.size());
  for (const UpdateRecord& record : records) {
    rows.push_back({printable(record.time), codeText(static_cast<std::uint32_t>(record.status)),
                    printable(outcomeOf(record)), record.exitCode ? codeText(*record.exitCode) : "-",
                    record.durationMs ? duration(*record.durationMs) : "-",
                    record.productVersion.empty() ? "-" : printable(record.productVersion),
                    printable(callerText(record.caller)), printable(fileNameOf(record.path))});
  }
  return table({"TIME (UTC)", "STATUS", "OUTCOME", "EXIT CODE", "TOOK", "VERSION", "ASKED BY", "BUNDLE"},
               rows);
}

Json toJson(const UpdateRecord& record) {
  Json checks = Json::array();
  for (const CheckRecord& check : record.checks) {
    checks.push_back({{"name", check.name}, {"verdict", check.verdict}, {"detail", check.detail}});
  }
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
          {"status", record.status},
          {"exitCode", orNull(record.exitCode)},
          {"durationMs", orNull(record.durationMs)},
          {"product", record.product},
          {"productVersion", record.productVersion}};
}

}  // namespace zarn::tool
