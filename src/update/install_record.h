// The record of an install request as the service writes it and zarn-update reads it:
// one JSON object a line. record_folder.h says where the lines lie.
//
// Keys, in this order: time (of the request's beginning), caller (sid, processId, image;
// each null when it is not known), path, size, sha256, signerDigest, signerSubject, checks
// (name, verdict, detail), reason (or null), status, exitCode, installerStarted (null where
// there is no exit code), durationMs, product, productVersion. Texts are UTF-8. Path, image,
// signer and product are what others chose: not yet fit to be shown.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "update/status.h"
#include "update/under_way.h"

namespace zarn {

/// The steps that a bundle has to pass before it is run, in their order.
enum class Check : std::uint8_t { Open, Size, Extension, Copy, Integrity, Identity, Policy };
inline constexpr std::array<std::string_view, 7> kCheckNames = {"open",      "size",     "extension", "copy",
                                                                "integrity", "identity", "policy"};

/// `Refused` judges the bundle; `Failed` says that it could not be judged.
enum class Verdict : std::uint8_t { NotReached, Passed, Refused, Failed };
inline constexpr std::array<std::string_view, 4> kVerdictNames = {"not reached", "passed", "refused",
                                                                  "failed"};

[[nodiscard]] constexpr std::string_view nameOf(Check check) noexcept {
  return kCheckNames[static_cast<std::size_t>(check)];
}
[[nodiscard]] constexpr std::string_view nameOf(Verdict verdict) noexcept {
  return kVerdictNames[static_cast<std::size_t>(verdict)];
}

/// Who asked for something, for the record and for sharing out places. Empty where the
/// system does not tell.
struct Caller {
  std::string sid;  ///< the security identifier of the user, "S-1-5-..."
  std::optional<std::uint32_t> processId;
  /// The program that the process runs: a path whose names others chose.
  std::string image;
};

/// A check by its name and verdict in words, which a file of another version may have
/// that are not known here.
struct CheckRecord {
  std::string name;
  std::string verdict;
  std::string detail;
};

/// What is not known is empty. One that is read has what its line had; what a line of
/// another version lacks is empty, too.
struct InstallRecord {
  /// With every check not reached yet, and failed until something else is noted.
  InstallRecord();

  std::string time;  ///< see isoTime()
  Caller caller;
  std::string path;
  std::optional<std::uint64_t> size;  ///< bytes
  /// SHA-256 of the private copy, the file that was judged; empty when there was none.
  std::string sha256;
  std::string signerDigest;
  std::string signerSubject;
  std::vector<CheckRecord> checks;
  /// Why the request ended before its first check, a sentence; empty when it came to that.
  std::string reason;
  Status status = Status::Failed;
  std::optional<std::uint32_t> exitCode;  ///< none when no installer was to run
  /// Whether the exit code is an installer's own, and not the system's error for which it
  /// could not be started.
  std::optional<bool> installerStarted;
  std::optional<std::int64_t> durationMilliseconds;
  std::string product;
  std::string productVersion;

  /// Notes how `check` ended in a record that was not read; true when it passed.
  bool note(Check check, Verdict verdict, std::string detail = {});
};

/// What others may read of the request meanwhile (update/under_way.h): a JSON object and a
/// line break.
[[nodiscard]] std::string installingText(const InstallRecord& record, std::uint32_t processId);

/// UTC, "2026-11-21T10:15:00.007Z": times compare as their texts do.
[[nodiscard]] std::string isoTime(std::chrono::system_clock::time_point time);

/// Every key with all of its text.
[[nodiscard]] nlohmann::ordered_json toJson(const InstallRecord& record);

/// The object and a line break; what is not UTF-8 is replaced, and texts of others are
/// cut (kLongestRecordedText).
[[nodiscard]] std::string recordLine(const InstallRecord& record);

/// Reads a line of any origin and length. Nothing when it is no JSON object with a time
/// and a status; other keys may be missing, of another type, or not known, and are
/// passed over then. A number that does not fit its field is taken modulo 2^32 or 2^64.
[[nodiscard]] std::optional<InstallRecord> parseRecord(std::string_view line);

}  // namespace zarn
