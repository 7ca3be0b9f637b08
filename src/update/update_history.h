// The record of every install request, one JSON object a line: what it holds, and
// how a line is appended. Requests that ended with an installer's exit code and the
// others have a file of their own in the record folder (record_folder.h); "Update
// History.jsonl" in the log directory has a copy of both.
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
#include "util/held_folder.h"
#include "util/product_names.h"

namespace zarn {

/// The steps that a bundle has to pass before it is run, in their order.
enum class Check : std::uint8_t { Open, Size, Extension, Copy, Integrity, Identity, Policy };
inline constexpr std::size_t kCheckCount = 7;

/// `Refused` judges the bundle; `Failed` says that it could not be judged.
enum class Verdict : std::uint8_t { NotReached, Passed, Refused, Failed };

struct CheckOutcome {
  Verdict verdict = Verdict::NotReached;
  std::string detail;
};

/// Texts are UTF-8. Path, caller, signer and product are what others chose: not yet fit to be shown.
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
  /// Why the request ended before its first check, a sentence; empty when it came to that.
  std::string reason;
  Status status = Status::Failed;
  std::optional<std::uint32_t> exitCode;
  std::chrono::milliseconds duration{0};
  std::string product;
  std::string productVersion;

  /// Notes how `check` ended; true when it passed.
  bool note(Check check, Verdict verdict, std::string detail = {});
};

/// "2026-11-21T10:15:00.007Z".
[[nodiscard]] std::string isoTime(std::chrono::system_clock::time_point time);

/// The object and a line break; what is not UTF-8 is replaced, and texts of others are
/// cut (kLongestRecordedText). Keys: time (UTC, ISO 8601), caller (sid, processId,
/// image; each null when it is not known), path, size, sha256, signerDigest,
/// signerSubject, checks (name, verdict, detail), reason (or null), status, exitCode,
/// durationMs, product, productVersion.
[[nodiscard]] std::string historyLine(const InstallRecord& record);

/// A file begins anew when it has reached this size, and replaces the one before.
inline constexpr std::uint64_t kMaximumHistoryBytes = 8U << 20;

/// A file of records and what it is called when the next one has begun.
struct HistoryNames {
  std::string_view current;
  std::string_view earlier;
};
inline constexpr HistoryNames kHistoryNames{names::kHistory.narrow, names::kEarlierHistory.narrow};
inline constexpr HistoryNames kRefusedNames{names::kRefused.narrow, names::kEarlierRefused.narrow};

/// Appends the line whole or not at all; a torn last line, left by a power cut, is
/// closed first. Refuses links and files with a second name, and files of twice the
/// maximum, which grow when somebody keeps them from being renamed. One call at a
/// time. False on failure, which it leaves to others to log.
[[nodiscard]] bool appendLine(const FileUtils::HeldFolder& folder, const HistoryNames& file,
                              std::string_view line, std::uint64_t maximumBytes = kMaximumHistoryBytes);

/// Appends to the copy in `directory`, which must exist. From any thread. False, and
/// logged, on failure.
bool appendToHistory(std::string_view directory, std::string_view line);

/// Says that a record could not be kept, which no answer suffers from.
void logUnwrittenRecord();

}  // namespace zarn
