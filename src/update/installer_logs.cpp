#include "update/installer_logs.h"

#include <array>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "os/error_text.h"
#include "os/files.h"
#include "util/held_folder.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/product_names.h"

namespace zarn {
namespace {

namespace fs = boost::filesystem;
using boost::system::error_code;

/// The next install waits for it.
constexpr std::chrono::minutes kCollectionLimit{1};

bool isRegularFile(const fs::directory_entry& entry) {
  error_code error;
  return entry.symlink_status(error).type() == fs::regular_file;
}

/// Below what callers choose: a link in its place is refused, and what is made there
/// is made in the folder that was found, whatever its name leads to later.
Result<FileUtils::HeldFolder> makeDestination() {
  using FileUtils::HeldFolder;
  const std::string logs = FileUtils::logDirectory();
  const auto hold = [&] {
    return HeldFolder::hold(logs, FileUtils::Links::Follow, FileUtils::OwnPlaces::Refuse);
  };
  auto folder = hold();
  if (!folder && folder.error().isNotFound() && FileUtils::makeLogDirectory()) folder = hold();
  if (!folder) return folder;
  return folder->folder(names::kInstallerLogs.narrow, FileUtils::Existing::OpenOrCreate);
}

Result<void> copyBytes(std::FILE* from, std::FILE* to) {
  IoDeadline deadline(kLogFileLimit);
  std::array<char, 16'384> bytes{};  // of the stack: nothing is thrown beside a file that was begun
  std::size_t count = 0;
  do {
    count = std::fread(bytes.data(), 1, bytes.size(), from);
    if (std::fwrite(bytes.data(), 1, count, to) != count) return lastFailure();
    deadline.renew();
  } while (count == bytes.size());
  return resultOf(std::ferror(from) == 0 && std::fflush(to) == 0);
}

/// Copies to a name where nothing stands.
Result<void> copyTo(const FileUtils::HeldFolder& destination, const std::string& name, std::FILE& source) {
  auto copy = destination.create(name);
  if (!copy) return failure(copy.error());
  auto copied = copyBytes(&source, copy->get());
  os::copyFileTime(source, **copy);
  if (copied) copied = os::keepFile(**copy);
  copy->reset();
  if (!copied) destination.remove(name);  // half a log would keep the next one out
  return copied;
}

Result<os::ScopedFile> openSource(const fs::path& path) {
  const IoDeadline deadline(kOpenLimit);
  return os::openPlainFile(path);
}

void copyLog(const fs::path& from, const FileUtils::HeldFolder& destination) {
  const std::string name = FileUtils::toUtf8(from.filename());
  const auto source = openSource(from);
  if (source && !*source) {
    logLine(LogLevel::Debug, "Not collecting %s, it is not a plain file with one name", printable(name));
    return;
  }
  const auto copied = source ? copyTo(destination, name, **source) : Result<void>(failure(source.error()));
  // An earlier installer's log stays; this one's is not worth a second name.
  if (copied || copied.error().isAlreadyThere()) return;
  logLine(LogLevel::Debug, "Failed copying file %s, copy_file: %d, %s", printable(name),
          copied.error().code(), systemErrorPhrase(copied.error()));
}

void copyLogs(fs::directory_iterator entries, const FileUtils::HeldFolder& destination) {
  for (; entries != fs::directory_iterator(); ++entries) {
    const fs::path& file = entries->path();
    if (isRegularFile(*entries) && isInstallerLogName<fs::path::value_type>(file.filename().native()))
      copyLog(file, destination);
  }
}

}  // namespace

void collectInstallerLogs() {
  const IoDeadline deadline(kCollectionLimit);
  const auto destination = makeDestination();
  if (!destination) {
    logLine(LogLevel::Error, "Failed creating \"Installer Logs\" directory, create_directories: %d, %s",
            destination.error().code(), systemErrorPhrase(destination.error()));
    return;
  }
  error_code error;
  const fs::path source = fs::temp_directory_path(error);
  if (error) {
    logLine(LogLevel::Error, "Failed getting temp_directory_path: %d, %s", error.value(),
            systemErrorPhrase(error));
    return;
  }
  const fs::directory_iterator entries(source, error);
  if (error) {
    logLine(LogLevel::Debug, "Failed directory_iterator(%s): %d, %s", printable(FileUtils::toUtf8(source)),
            error.value(), systemErrorPhrase(error));
    return;
  }
  try {
    copyLogs(entries, *destination);
  } catch (const std::exception& failure) {
    logLine(LogLevel::Error, "Failed copying installer logs to %s, Exception: %s",
            printable(destination->path()), printable(failure.what()));
  }
}

}  // namespace zarn
