// File-system operations and the directories of the media server. Paths are
// UTF-8. No operation throws for a file-system error: each logs its message at
// level Error and reports failure. All may be called from any thread.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <string>
#include <string_view>

#include "os/files.h"

namespace zarn::FileUtils {

using os::Links;
using os::ScopedFile;

// ---- Paths -----------------------------------------------------------------

/// Drive-letter paths longer than 250 bytes get the prefix "\\?\"; others stay unchanged.
[[nodiscard]] std::string withLongPathPrefix(std::string_view path);

/// The path in the system's own encoding, long-path prefix included.
[[nodiscard]] boost::filesystem::path toPath(std::string_view path);
[[nodiscard]] std::string toUtf8(const boost::filesystem::path& path);

/// `directory` and `name` with one separator between them; runs of separators in
/// the result are reduced to one, except at its start (UNC names).
[[nodiscard]] std::string join(std::string_view directory, std::string_view name);

// ---- Operations --------------------------------------------------------------

bool copyFile(std::string_view from, std::string_view to);
bool copyDirectoryRecursively(std::string_view from, std::string_view to);

/// Renames; across volumes, copies (a file with overwrite) and then deletes the source.
bool move(std::string_view from, std::string_view to);

/// A file that does not exist counts as deleted. `quiet` suppresses the failure's log line.
bool deleteFile(std::string_view path, bool quiet = false);

bool createDirectories(std::string_view path);
[[nodiscard]] bool exists(std::string_view path) noexcept;
[[nodiscard]] bool isDirectory(std::string_view path);

/// In bytes; all bits set (-1 seen as signed) when the size cannot be read.
[[nodiscard]] std::uint64_t fileSize(std::string_view path);

/// Opens a C stream with the modes of fopen (r, w, a, +, b; an empty mode
/// reads). `shareDelete` lets other processes read, write, rename and delete the
/// file while it is open; without it they can only read. Null on failure.
[[nodiscard]] ScopedFile safeOpen(std::string_view path, const char* mode, bool shareDelete,
                                  Links links = Links::Follow);

/// Why safeOpen, or a held folder, has no stream, as one line.
void logOpenFailure(std::string_view path, const os::OpenFailure& reason);

// ---- Directories ---------------------------------------------------------------

/// The process-wide application-data directory that replaces every other
/// derivation while it is non-empty.
void setApplicationDataOverride(std::string path);

/// Whether a path is the override or below it.
[[nodiscard]] bool isBelowOverride(std::string_view path);

/// Tells this library how to read the preference LocalAppDataPath, which lives
/// above it. The preference store registers itself here when it is made.
void setLocalAppDataPathReader(std::string (*reader)()) noexcept;

/// The override; else the preference (when `allowPreference`), else the user's
/// local application-data folder, the last two followed by "Zarn Media Server"
/// when `withProduct`. Without a home folder the process ends (logFatal).
///
/// A preference that names no folder on a drive of this machine, or a place of the
/// service's own (util/path_judge.h), is not used, and nothing on it is opened: the
/// last one that was used in this process stands in for it, if there is one.
[[nodiscard]] std::string applicationDataDirectory(bool withProduct = true, bool allowPreference = true);
[[nodiscard]] std::string logDirectory(bool withProduct = true, bool allowPreference = true);

/// Why the preference was not used, as a sentence for the log; once for each text
/// that it had, and empty when there is nothing new to say.
[[nodiscard]] std::string takeRefusalOfAppDataPath();

/// Whether the application-data directory is one that others chose, and not the
/// service's own. Looks for no home folder.
[[nodiscard]] bool isApplicationDataChosen();

/// Makes the log directory and what is missing above it. Of a path that others chose
/// only the last two folders are made, whose names are ours, in one that is there: with
/// our rights nobody else names folders. False, and logged, on failure.
bool makeLogDirectory();

/// Created when missing.
[[nodiscard]] std::string databasesDirectory();

/// "Resources" beside the running executable, and the CA bundle in it: the one that an
/// administrator chose when there is one, whether it is of use or not, else the shipped one.
[[nodiscard]] std::string resourcesDirectory();
[[nodiscard]] std::string certificateFileIn(std::string_view resources);
[[nodiscard]] std::string certificateFile();

}  // namespace zarn::FileUtils
