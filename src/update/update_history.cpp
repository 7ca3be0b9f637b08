#include "update/update_history.h"

#include <fmt/format.h>

#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "os/files.h"
#include "util/held_folder.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/mutex.h"
#include "util/printable.h"
#include "util/time_utils.h"

namespace zarn {
namespace {

/// Requests that are refused end beside the one that is being installed.
Mutex copyMutex;

constexpr std::array<const char*, kCheckCount> kCheckNames = {"open",      "size",     "extension", "copy",
                                                              "integrity", "identity", "policy"};
constexpr std::array<const char*, 4> kVerdictNames = {"not reached", "passed", "refused", "failed"};

template <typename Number>
nlohmann::ordered_json orNull(const std::optional<Number>& number) {
  return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json(nullptr);
}

nlohmann::ordered_json orNull(const std::string& text) {
  return text.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text);
}

/// What others wrote, short enough for a record.
std::string cut(const std::string& text) {
  return cutText(text, kLongestRecordedText);
}

nlohmann::ordered_json callerObject(const Caller& caller) {
  nlohmann::ordered_json process(nullptr);
  if (caller.processId != 0) process = caller.processId;
  return {
      {"sid", orNull(caller.sid)}, {"processId", std::move(process)}, {"image", orNull(cut(caller.image))}};
}

/// The file's size when a line may follow; -1 when that cannot be found out.
long endOf(std::FILE* file, bool& isTorn) {
  if (std::fseek(file, 0, SEEK_END) != 0) return -1;
  const long end = std::ftell(file);
  if (end <= 0) return end;
  if (std::fseek(file, end - 1, SEEK_SET) != 0) return -1;
  isTorn = std::fgetc(file) != '\n';
  if (std::ferror(file) != 0) return -1;
  return std::fseek(file, 0, SEEK_END) == 0 ? end : -1;
}

bool append(std::FILE* file, std::string_view line) {
  bool isTorn = false;
  const long end = endOf(file, isTorn);
  if (end < 0) return false;
  const bool written = (!isTorn || std::fputc('\n', file) != EOF) &&
                       std::fwrite(line.data(), 1, line.size(), file) == line.size() &&
                       std::fflush(file) == 0;
  // A full disk takes the first half of a line gladly.
  if (!written) os::cutFile(*file, end);
  return written;
}

/// Nothing when the file cannot be told.
std::optional<std::uint64_t> sizeOf(std::FILE* file) {
  if (std::fseek(file, 0, SEEK_END) != 0) return std::nullopt;
  const long end = std::ftell(file);
  return end >= 0 ? std::optional(static_cast<std::uint64_t>(end)) : std::nullopt;
}

/// Opens the file to append to. One that is too large becomes the earlier file; null
/// also when it could not be moved for too long.
FileUtils::ScopedFile openWithRoom(const FileUtils::HeldFolder& folder, const HistoryNames& names,
                                   std::uint64_t maximumBytes) {
  auto file = folder.open(names.current, "a+b").value_or(nullptr);
  const auto bytes = file ? sizeOf(file.get()) : std::nullopt;
  if (!bytes || *bytes < maximumBytes) return file;
  file.reset();
  if (!folder.rename(names.current, names.earlier) && *bytes / 2 >= maximumBytes) return nullptr;
  return folder.open(names.current, "a+b").value_or(nullptr);
}

}  // namespace

std::string isoTime(std::chrono::system_clock::time_point time) {
  const auto since = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
  std::tm fields{};
  static_cast<void>(TimeUtils::epochToUtc(seconds.count(), fields));
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", fields.tm_year + 1900, fields.tm_mon + 1,
                     fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec, (since - seconds).count());
}

bool InstallRecord::note(Check check, Verdict verdict, std::string detail) {
  checks.at(static_cast<std::size_t>(check)) = {verdict, std::move(detail)};
  return verdict == Verdict::Passed;
}

std::string historyLine(const InstallRecord& record) {
  auto checks = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < kCheckCount; ++i) {
    const auto& [verdict, detail] = record.checks.at(i);
    checks.push_back({{"name", kCheckNames.at(i)},
                      {"verdict", kVerdictNames.at(static_cast<std::size_t>(verdict))},
                      {"detail", cut(detail)}});
  }
  const nlohmann::ordered_json object = {{"time", isoTime(record.began)},
                                         {"caller", callerObject(record.caller)},
                                         {"path", cut(record.path)},
                                         {"size", orNull(record.size)},
                                         {"sha256", record.sha256},
                                         {"signerDigest", record.signerDigest},
                                         {"signerSubject", cut(record.signerSubject)},
                                         {"checks", std::move(checks)},
                                         {"reason", orNull(record.reason)},
                                         {"status", static_cast<std::int32_t>(record.status)},
                                         {"exitCode", orNull(record.exitCode)},
                                         {"durationMs", record.duration.count()},
                                         {"product", cut(record.product)},
                                         {"productVersion", cut(record.productVersion)}};
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

bool appendLine(const FileUtils::HeldFolder& folder, const HistoryNames& file, std::string_view line,
                std::uint64_t maximumBytes) {
  // Large enough that the line leaves in a single write; outlives the file that uses it.
  std::vector<char> buffer(line.size() + 2);
  const FileUtils::ScopedFile stream = openWithRoom(folder, file, maximumBytes);
  return stream && std::setvbuf(stream.get(), buffer.data(), _IOFBF, buffer.size()) == 0 &&
         append(stream.get(), line);
}

bool appendToHistory(std::string_view directory, std::string_view line) {
  const MutexLock lock(copyMutex);
  const IoDeadline deadline(kLogFileLimit);
  // Callers may choose the directory; see where the log is rotated.
  const auto folder =
      FileUtils::HeldFolder::hold(directory, FileUtils::Links::Follow, FileUtils::OwnPlaces::Refuse);
  if (folder && appendLine(*folder, kHistoryNames, line)) return true;
  logUnwrittenRecord();
  return false;
}

void logUnwrittenRecord() {
  logLine(LogLevel::Warn, "The update history could not be written.");
}

}  // namespace zarn
