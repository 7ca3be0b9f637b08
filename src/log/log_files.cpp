#include "log/log_files.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "log/log_line.h"
#include "log/log_platform.h"
#include "log/token_scrubber.h"
#include "util/log_names.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn::LogFiles {

std::string path(std::string_view directory, std::string_view baseName, std::size_t number) {
  if (number == 0) return FileUtils::join(directory, std::string(baseName) + ".log");
  return FileUtils::join(directory, formatPrintf("%s.%zu.log", baseName, number));
}

void rotate(std::string_view directory, std::string_view baseName, std::int32_t kept) {
  const auto last = static_cast<std::size_t>(std::max(kept, 1));
  std::string target = path(directory, baseName, last);
  FileUtils::deleteFile(target);
  for (std::size_t number = last; number > 0; --number) {
    std::string source = path(directory, baseName, number - 1);
    if (FileUtils::exists(source)) FileUtils::move(source, target);
    target = std::move(source);
  }
}

FileUtils::ScopedFile openNew(std::string_view path) {
  return FileUtils::safeOpen(path, "w", true, FileUtils::Links::Refuse);
}

FileUtils::ScopedFile openAgain(std::string_view path) {
  return FileUtils::safeOpen(path, "a", true, FileUtils::Links::Refuse);
}

void writeStartupCrash(std::string_view directory, std::string_view reason) {
  const FileUtils::ScopedFile file = openNew(FileUtils::join(directory, kStartupCrashLog));
  if (!file) return;
  std::string text = logTimeText(platform::currentLogTime().seconds) +
                     formatPrintf(": Failed to initialize logging: %s", printable(reason));
  scrubTokens(text, false);
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), file.get()));
  static_cast<void>(std::fflush(file.get()));
}

}  // namespace zarn::LogFiles
