// The files of a log: the current one, number 0, and the older ones beside it.
// May be called from any thread; for one base name by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "util/held_folder.h"

namespace zarn {

/// A file that has reached this size is rotated after the line that did it. Bytes
/// as handed to the C library: a line feed is one.
inline constexpr std::uint64_t kMaximumLogFileBytes = 10'485'760;

namespace LogFiles {

/// "<base name>.log" for number 0, "<base name>.<n>.log" for others.
[[nodiscard]] std::string name(std::string_view baseName, std::size_t number);
[[nodiscard]] std::string path(std::string_view directory, std::string_view baseName, std::size_t number);

/// Moves each of the files 0 to `kept` - 1 that are there one number up; what was
/// number `kept` is deleted. `kept` below 1 counts as 1. Files of higher numbers stay.
/// A file that cannot be moved is logged and stays. False when the folder cannot be
/// listed; nothing has happened then.
bool rotate(const FileUtils::HeldFolder& folder, std::string_view baseName, std::int32_t kept);

/// Rotates and begins a new file; other processes may read, rename and delete it
/// meanwhile. With `isRotated`, which a rotation sets, nothing is moved again, or each try
/// to begin a file would push an older one out: a file that is there goes on. Where nothing can be rotated,
/// goes on with a file that is there, so that nothing is lost, and makes none. Null, and logged, when it
/// cannot be opened or when something with another name or a link stands there.
[[nodiscard]] FileUtils::ScopedFile begin(const FileUtils::HeldFolder& folder, std::string_view baseName,
                                          std::int32_t kept, bool& isRotated);

/// Writes "Startup Crash.log", one line that says why the logger could not start.
void writeStartupCrash(std::string_view directory, std::string_view reason);

}  // namespace LogFiles
}  // namespace zarn
