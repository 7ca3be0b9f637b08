// The record of install requests: one JSON object a line. Pure functions; texts are
// UTF-8 and as the file has them.
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
  std::string name;     // open, size, extension, copy, integrity, identity, policy
  std::string verdict;  // passed, refused, failed, not reached
  std::string detail;
};

/// Who asked; empty and nothing where the service was not told, or wrote no such key yet.
struct CallerRecord {
  std::string sid;
  std::optional<std::uint32_t> processId;
  std::string image;
};

struct UpdateRecord {
  std::string time;  // UTC, ISO 8601
  CallerRecord caller;
  std::string path;
  std::optional<std::uint64_t> size;
  std::string sha256;
  std::string signerDigest;
  std::string signerSubject;
  std::vector<CheckRecord> checks;
  std::string reason;  // why nothing was begun; else empty
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

/// Both, oldest first; each keeps the order that it has, also when a clock was put back.
[[nodiscard]] History mergeByTime(History one, History other);

/// The first check that did not pass; null when all did, as when an installer ran.
[[nodiscard]] const CheckRecord* decidingCheck(const UpdateRecord& record) noexcept;

[[nodiscard]] std::string historyTable(const std::vector<UpdateRecord>& records);
[[nodiscard]] Json toJson(const UpdateRecord& record);

}  // namespace zarn::tool
