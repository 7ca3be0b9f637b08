// The files of a log: the current one, number 0, and the older ones beside it.
// May be called from any thread; for one base name by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "util/file_utils.h"

namespace zarn::LogFiles {

/// "<base name>.log" in `directory` for number 0, "<base name>.<n>.log" for others.
[[nodiscard]] std::string path(std::string_view directory, std::string_view baseName, std::size_t number);

/// Moves each of the files 0 to `kept` - 1 one number up; what was number `kept`
/// is deleted. `kept` below 1 counts as 1. Files of higher numbers stay. A file
/// that cannot be moved is logged and stays; missing ones are passed over.
void rotate(std::string_view directory, std::string_view baseName, std::int32_t kept);

/// Begins a new file; other processes may read, rename and delete it meanwhile.
/// Null, and logged, when it cannot be opened or when something with another
/// name or a link stands there.
[[nodiscard]] FileUtils::ScopedFile openNew(std::string_view path);

/// The same, but goes on with a file that is there.
[[nodiscard]] FileUtils::ScopedFile openAgain(std::string_view path);

/// Writes "Startup Crash.log", one line that says why the logger could not start.
void writeStartupCrash(std::string_view directory, std::string_view reason);

}  // namespace zarn::LogFiles
