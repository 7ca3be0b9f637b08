#include "log/log_files.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <optional>
#include <vector>

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

// The file system may take names in any letters, so these are compared likewise.

bool takeBegin(std::string_view& text, std::string_view part) {
  const bool begins = os::equalsIgnoringCase(text.substr(0, part.size()), part);
  if (begins) text.remove_prefix(part.size());
  return begins;
}

bool takeEnd(std::string_view& text, std::string_view part) {
  const bool ends =
      text.size() >= part.size() && os::equalsIgnoringCase(text.substr(text.size() - part.size()), part);
  if (ends) text.remove_suffix(part.size());
  return ends;
}

/// The number of the file that has this name; nothing for others.
std::optional<std::size_t> numberOf(std::string_view fileName, std::string_view baseName) {
  if (!takeBegin(fileName, baseName) || !takeEnd(fileName, kExtension)) return std::nullopt;
  if (fileName.empty()) return 0;
  // A number with a zero in front is not one of ours: we would not find that file again.
  if (!takeBegin(fileName, ".") || fileName.starts_with('0')) return std::nullopt;
  return os::parseNumber<std::size_t>(fileName);
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
  // The highest number moves first, so that each finds the place above it free.
  std::sort(numbers.begin(), numbers.end(), std::greater<>());
  for (const std::size_t number : numbers) {
    const std::string source = name(baseName, number);
    // A step that fails is logged and leaves its file; the others move all the same.
    if (number == last) {
      folder.remove(source);
    } else if (folder.exists(source)) {
      folder.rename(source, name(baseName, number + 1));
    }
  }
  return true;
}

FileUtils::ScopedFile begin(const FileUtils::HeldFolder& folder, std::string_view baseName, std::int32_t kept,
                            bool& isRotated) {
  const std::string file = name(baseName, 0);
  if (isRotated) return folder.open(file, "a").value_or(nullptr);
  isRotated = rotate(folder, baseName, kept);
  if (isRotated) return folder.open(file, "w").value_or(nullptr);
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
  // The reason may name what the environment or a preference said: it is scrubbed like a line.
  std::string text = logTimeText(os::wallTime().seconds) +
                     formatPrintf(": Failed to initialize logging: %s", printable(reason));
  scrubTokens(text, false);
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), file->get()));
  static_cast<void>(std::fflush(file->get()));
}

}  // namespace zarn::LogFiles
