#include "update/installer_logs.h"

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "update/log_source.h"
#include "util/held_folder.h"
#include "util/io_deadline.h"
#include "util/log_names.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/system_error.h"

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
FileUtils::HeldFolder makeDestination(error_code& error) {
  const std::string logs = FileUtils::logDirectory();
  FileUtils::HeldFolder folder =
      FileUtils::HeldFolder::hold(logs, FileUtils::Links::Follow, FileUtils::OwnPlaces::Refuse);
  if (!folder && FileUtils::HeldFolder::isMissing(folder.error()) && FileUtils::makeLogDirectory()) {
    folder = FileUtils::HeldFolder::hold(logs, FileUtils::Links::Follow, FileUtils::OwnPlaces::Refuse);
  }
  if (folder) folder = folder.folder(names::kInstallerLogs.narrow, FileUtils::Existing::OpenOrCreate);
  if (!folder) error.assign(static_cast<int>(folder.error()), boost::system::system_category());
  return folder;
}

/// 0, or the system's error.
std::uint32_t copyBytes(std::FILE* from, std::FILE* to) {
  IoDeadline deadline(kLogFileLimit);
  std::vector<char> bytes(std::size_t{64} << 10U);
  std::size_t count = 0;
  do {
    count = std::fread(bytes.data(), 1, bytes.size(), from);
    if (std::fwrite(bytes.data(), 1, count, to) != count) return failureCode(lastSystemError());
    deadline.renew();
  } while (count == bytes.size());
  const bool done = std::ferror(from) == 0 && std::fflush(to) == 0;
  return done ? 0 : failureCode(lastSystemError());
}

void copyLog(const fs::path& from, const FileUtils::HeldFolder& destination) {
  const std::string name = FileUtils::toUtf8(from.filename());
  error_code error;
  const auto source = openLogSource(from, error);
  if (!source && !error) {
    logLine(LogLevel::Debug, "Not collecting %s, it is not a plain file with one name", printable(name));
    return;
  }
  if (source) {
    std::uint32_t code = 0;
    if (auto copy = destination.create(name, code)) {
      code = copyBytes(source.get(), copy.get());
      keepTime(source.get(), copy.get());
      copy.reset();
      if (code != 0) destination.remove(name);  // half a log would keep the next one out
    }
    error.assign(static_cast<int>(code), boost::system::system_category());
  }
  // An earlier installer's log stays; this one's is not worth a second name.
  if (!error || error == boost::system::errc::file_exists) return;
  logLine(LogLevel::Debug, "Failed copying file %s, copy_file: %d, %s", printable(name), error.value(),
          systemErrorPhrase(error));
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
  error_code error;
  const FileUtils::HeldFolder destination = makeDestination(error);
  if (error) {
    logLine(LogLevel::Error, "Failed creating \"Installer Logs\" directory, create_directories: %d, %s",
            error.value(), systemErrorPhrase(error));
    return;
  }
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
    copyLogs(entries, destination);
  } catch (const std::exception& failure) {
    logLine(LogLevel::Error, "Failed copying installer logs to %s, Exception: %s",
            printable(destination.path()), printable(failure.what()));
  }
}

}  // namespace zarn
