// "Update History.jsonl", the record of every install request: one JSON object a
// line, in the log directory.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "update/caller.h"
#include "update/status.h"

namespace zarn {

/// The steps that a bundle has to pass before it is run, in their order.
enum class Check : std::uint8_t { Open, Size, Extension, Copy, Integrity, Identity };
inline constexpr std::size_t kCheckCount = 6;

/// `Refused` judges the bundle; `Failed` says that it could not be judged.
enum class Verdict : std::uint8_t { NotReached, Passed, Refused, Failed };

struct CheckOutcome {
  Verdict verdict = Verdict::NotReached;
  std::string detail;
};

/// Texts are UTF-8. Path, signer and product are what others chose: not yet fit to be shown.
struct InstallRecord {
  std::chrono::system_clock::time_point began;
  Caller caller;
  std::string path;
  std::optional<std::uint64_t> size;
  /// SHA-256 of the private copy, the file that was judged; empty when there was none.
  std::string sha256;
  std::string signerDigest;
  std::string signerSubject;
  std::array<CheckOutcome, kCheckCount> checks;
  Status status = Status::Failed;
  std::optional<std::uint32_t> exitCode;
  std::chrono::milliseconds duration{0};
  std::string product;
  std::string productVersion;

  /// Notes how `check` ended; true when it passed.
  bool note(Check check, Verdict verdict, std::string detail = {});
};

/// The object and a line break; what is not UTF-8 is replaced. Keys: time (UTC, ISO
/// 8601), path, size, sha256, signerDigest, signerSubject, checks (name, verdict,
/// detail), status, exitCode, durationMs, product, productVersion.
[[nodiscard]] std::string historyLine(const InstallRecord& record);

/// The file begins anew when it has reached this size; the one before is kept as
/// "Update History.1.jsonl".
inline constexpr std::uint64_t kMaximumHistoryBytes = 8U << 20;

/// Appends the line whole or not at all to the history in `directory`, which must
/// exist; a torn last line, left by a power cut, is closed first. Refuses links and
/// files with a second name. False, and logged, on failure.
bool appendToHistory(std::string_view directory, std::string_view line,
                     std::uint64_t maximumBytes = kMaximumHistoryBytes);

}  // namespace zarn
