// "Update History.jsonl": one JSON object a line for every install request. Pure
// functions; texts are UTF-8 and as the file has them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/tool/answer.h"

namespace zarn::tool {

struct CheckRecord {
  std::string name;     // open, size, extension, copy, integrity, identity
  std::string verdict;  // passed, refused, failed, not reached
  std::string detail;
};

struct UpdateRecord {
  std::string time;  // UTC, ISO 8601
  std::string path;
  std::optional<std::uint64_t> size;
  std::string sha256;
  std::string signerDigest;
  std::string signerSubject;
  std::vector<CheckRecord> checks;
  std::int32_t status = 0;
  std::optional<std::uint32_t> exitCode;
  std::optional<std::int64_t> durationMs;
  std::string product;
  std::string productVersion;
};

struct History {
  std::vector<UpdateRecord> records;  // oldest first, as in the file
  /// Lines that are torn or not ours.
  std::size_t skipped = 0;
};

/// Reads whole lines; keys that are not known are passed over.
[[nodiscard]] History parseHistory(std::string_view text);

/// The first check that did not pass; null when all did.
[[nodiscard]] const CheckRecord* decidingCheck(const UpdateRecord& record) noexcept;

[[nodiscard]] std::string historyTable(const std::vector<UpdateRecord>& records);
[[nodiscard]] Json toJson(const UpdateRecord& record);

}  // namespace zarn::tool
