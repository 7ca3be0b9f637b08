#include "update/record_folder.h"

#include <cstdio>
#include <string>

#include "os/files.h"
#include "util/io_deadline.h"
#include "util/logging.h"

namespace zarn {
namespace {

/// Requests that are refused end beside the one that is being installed, and both have
/// their copies in one file.
Mutex copyMutex;

/// The file's size when a line may follow; -1 when that cannot be found out. A last line
/// that does not end is torn: the next one would be read as its second half.
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
  // In a single write, so that nothing but a full disk can tear it.
  const bool written = os::writeThrough(*file, std::string(isTorn ? "\n" : "").append(line));
  // That takes the first half of a line, which would be torn like the one above.
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
FileUtils::ScopedFile openWithRoom(const FileUtils::HeldFolder& folder, const RecordFileNames& names,
                                   std::uint64_t maximumBytes) {
  auto file = folder.open(names.current, "a+b").value_or(nullptr);
  const auto bytes = file ? sizeOf(file.get()) : std::nullopt;
  if (!bytes || *bytes < maximumBytes) return file;
  file.reset();
  // Any reader can keep the file from being renamed. It grows on then, so that no record
  // is lost, but not for ever.
  if (!folder.rename(names.current, names.earlier) && *bytes / 2 >= maximumBytes) return nullptr;
  return folder.open(names.current, "a+b").value_or(nullptr);
}

}  // namespace

bool appendLine(const FileUtils::HeldFolder& folder, const RecordFileNames& file, std::string_view line,
                std::uint64_t maximumBytes) {
  const FileUtils::ScopedFile stream = openWithRoom(folder, file, maximumBytes);
  return stream && append(stream.get(), line);
}

bool appendToHistory(std::string_view directory, std::string_view line) {
  const MutexLock lock(copyMutex);
  const IoDeadline deadline(kLogFileLimit);
  // A place of our own is refused: a caller who chose it would have us write there.
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
