#include "update/installer_logs.h"

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <exception>
#include <string>

#include "update/log_source.h"
#include "util/file_utils.h"
#include "util/log_names.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/system_error.h"

namespace zarn {
namespace {

namespace fs = boost::filesystem;
using boost::system::error_code;

bool isRegularFile(const fs::directory_entry& entry) {
  error_code error;
  return entry.symlink_status(error).type() == fs::regular_file;
}

fs::path makeDestination(error_code& error) {
  const std::string path = FileUtils::join(FileUtils::logDirectory(), names::kInstallerLogs.narrow);
  fs::path destination = FileUtils::toPath(path);
  fs::create_directories(destination, error);
  return destination;
}

void copyLog(const fs::path& from, const fs::path& to) {
  error_code error;
  const auto held = holdLogSource(from, error);
  if (!held && !error) {
    logLine(LogLevel::Debug, "Not collecting %s, it is not a plain file with one name",
            printable(FileUtils::toUtf8(from.filename())));
    return;
  }
  if (!error) fs::copy_file(from, to, fs::copy_options::none, error);
  // An earlier installer's log stays; this one's is not worth a second name.
  if (!error || error == boost::system::errc::file_exists) return;
  logLine(LogLevel::Debug, "Failed copying file %s, copy_file: %d, %s",
          printable(FileUtils::toUtf8(from.filename())), error.value(), systemErrorPhrase(error));
}

void copyLogs(fs::directory_iterator entries, const fs::path& destination) {
  for (; entries != fs::directory_iterator(); ++entries) {
    const fs::path& file = entries->path();
    if (isRegularFile(*entries) && isInstallerLogName<fs::path::value_type>(file.filename().native()))
      copyLog(file, destination / file.filename());
  }
}

}  // namespace

void collectInstallerLogs() {
  error_code error;
  fs::path destination = makeDestination(error);
  // Below what callers choose: a link in its place is refused, and one planted later
  // leads no copy elsewhere.
  FileUtils::HeldFolder held;
  if (!error) {
    held = FileUtils::holdFolder(FileUtils::toUtf8(destination), FileUtils::Links::Refuse,
                                 FileUtils::HoldFor::Changes);
    if (held.error != 0) error.assign(static_cast<int>(held.error), boost::system::system_category());
    destination = FileUtils::toPath(held.path);
  }
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
            printable(FileUtils::toUtf8(destination)), printable(failure.what()));
  }
}

}  // namespace zarn
