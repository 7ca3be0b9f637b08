#include "update/update_history.h"

#include <fmt/format.h>

#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "update/file_end.h"
#include "util/file_utils.h"
#include "util/logging.h"
#include "util/product_names.h"
#include "util/time_utils.h"

namespace zarn {
namespace {

constexpr std::array<const char*, kCheckCount> kCheckNames = {"open", "size",      "extension",
                                                              "copy", "integrity", "identity"};
constexpr std::array<const char*, 4> kVerdictNames = {"not reached", "passed", "refused", "failed"};

std::string isoTime(std::chrono::system_clock::time_point time) {
  const auto since = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
  std::tm fields{};
  static_cast<void>(TimeUtils::epochToUtc(seconds.count(), fields));
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", fields.tm_year + 1900, fields.tm_mon + 1,
                     fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec, (since - seconds).count());
}

template <typename Number>
nlohmann::ordered_json orNull(const std::optional<Number>& number) {
  return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json(nullptr);
}

/// Makes room for new records: what is too large becomes the earlier history.
void beginAnewWhenLarge(const std::string& path, std::string_view directory, std::uint64_t maximumBytes) {
  constexpr std::uint64_t unknown = ~std::uint64_t{0};
  const std::uint64_t bytes = FileUtils::exists(path) ? FileUtils::fileSize(path) : 0;
  if (bytes >= maximumBytes && bytes != unknown) {
    FileUtils::move(path, FileUtils::join(directory, names::kEarlierHistory.narrow));
  }
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
  if (!written) cutFile(file, end);
  return written;
}

bool appendTo(const std::string& directory, std::string_view line, std::uint64_t maximumBytes) {
  const std::string path = FileUtils::join(directory, names::kHistory.narrow);
  beginAnewWhenLarge(path, directory, maximumBytes);
  // Large enough that the line leaves in a single write; outlives the file that uses it.
  std::vector<char> buffer(line.size() + 2);
  const FileUtils::ScopedFile file = FileUtils::safeOpen(path, "a+b", true, FileUtils::Links::Refuse);
  return file && std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size()) == 0 &&
         append(file.get(), line);
}

}  // namespace

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
                      {"detail", detail}});
  }
  const nlohmann::ordered_json object = {
      {"time", isoTime(record.began)},       {"path", record.path},
      {"size", orNull(record.size)},         {"sha256", record.sha256},
      {"signerDigest", record.signerDigest}, {"signerSubject", record.signerSubject},
      {"checks", std::move(checks)},         {"status", static_cast<std::int32_t>(record.status)},
      {"exitCode", orNull(record.exitCode)}, {"durationMs", record.duration.count()},
      {"product", record.product},           {"productVersion", record.productVersion}};
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

bool appendToHistory(std::string_view directory, std::string_view line, std::uint64_t maximumBytes) {
  // Callers may choose the directory; see where the log is rotated.
  const auto held = FileUtils::holdFolder(directory, FileUtils::Links::Follow, FileUtils::HoldFor::Changes);
  if (held.error == 0 && appendTo(held.path, line, maximumBytes)) return true;
  logLine(LogLevel::Warn, "The update history could not be written.");
  return false;
}

}  // namespace zarn
