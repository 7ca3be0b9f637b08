#include "log/log_files.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <functional>
#include <optional>
#include <vector>

#include "log/base_log.h"
#include "log/log_line.h"
#include "log/token_scrubber.h"
#include "os/clock.h"
#include "os/text.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/product_names.h"

namespace zarn::LogFiles {

namespace {

constexpr std::string_view kExtension = ".log";

/// Takes `part` off the beginning of `text`, in any letters.
bool take(std::string_view& text, std::string_view part) {
  const bool begins = os::equalsIgnoringCase(text.substr(0, part.size()), part);
  if (begins) text.remove_prefix(part.size());
  return begins;
}

/// The number of the file that has this name; nothing for others.
std::optional<std::size_t> numberOf(std::string_view fileName, std::string_view baseName) {
  if (!take(fileName, baseName)) return std::nullopt;
  std::string_view rest = fileName;
  if (take(rest, kExtension) && rest.empty()) return 0;
  if (!take(fileName, ".") || fileName.starts_with('0')) return std::nullopt;
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(fileName.data(), fileName.data() + fileName.size(), number);
  if (error != std::errc()) return std::nullopt;
  fileName.remove_prefix(static_cast<std::size_t>(end - fileName.data()));
  if (!take(fileName, kExtension) || !fileName.empty()) return std::nullopt;
  return number;
}

}  // namespace

std::string name(std::string_view baseName, std::size_t number) {
  if (number == 0) return std::string(baseName).append(kExtension);
  return formatPrintf("%s.%zu.log", baseName, number);
}

std::string path(std::string_view directory, std::string_view baseName, std::size_t number) {
  return FileUtils::join(directory, name(baseName, number));
}

bool rotate(const FileUtils::HeldFolder& folder, std::string_view baseName, std::int32_t kept) {
  const auto last = static_cast<std::size_t>(std::max(kept, 1));
  // Only what is there is moved: `kept` may be any number.
  std::vector<std::size_t> numbers;
  const auto listed = folder.list([&](const FileUtils::FolderEntry& entry) {
    const auto number = numberOf(FileUtils::toUtf8(entry.name), baseName);
    if (number && *number <= last) numbers.push_back(*number);
  });
  if (!listed) return false;
  std::sort(numbers.begin(), numbers.end(), std::greater<>());
  for (const std::size_t number : numbers) {
    const std::string source = name(baseName, number);
    if (number == last) {
      folder.remove(source);
    } else if (folder.exists(source)) {
      folder.rename(source, name(baseName, number + 1));
    }
  }
  return true;
}

FileUtils::ScopedFile begin(const FileUtils::HeldFolder& folder, std::string_view baseName,
                            std::int32_t kept) {
  const std::string file = name(baseName, 0);
  if (rotate(folder, baseName, kept)) return folder.open(file, "w").value_or(nullptr);
  // A folder that cannot be listed: its file goes on until it is full, and begins anew then.
  auto existing = folder.open(file, "a", FileUtils::Existing::Only).value_or(nullptr);
  const bool isFull = existing && std::fseek(existing.get(), 0, SEEK_END) == 0 &&
                      static_cast<std::uint64_t>(std::ftell(existing.get())) >= kMaximumLogFileBytes;
  return isFull ? folder.open(file, "w", FileUtils::Existing::Only).value_or(nullptr) : std::move(existing);
}

void writeStartupCrash(std::string_view directory, std::string_view reason) {
  const auto folder =
      FileUtils::HeldFolder::hold(directory, FileUtils::Links::Follow, FileUtils::OwnPlaces::Refuse);
  if (!folder) return;
  const auto file = folder->open(names::kStartupCrashLog.narrow, "w");
  if (!file) return;
  std::string text = logTimeText(os::wallTime().seconds) +
                     formatPrintf(": Failed to initialize logging: %s", printable(reason));
  scrubTokens(text, false);
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), file->get()));
  static_cast<void>(std::fflush(file->get()));
}

}  // namespace zarn::LogFiles
