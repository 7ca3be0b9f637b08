// Files, paths and the folders that the system names. Nothing here logs; texts are UTF-8.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "os/system_error.h"

namespace zarn::os {

// ---- Paths -------------------------------------------------------------------

/// Between the components of a path that we make.
extern const char kSeparator;
[[nodiscard]] bool isSeparator(char c) noexcept;

[[nodiscard]] Result<boost::filesystem::path> pathFromUtf8(std::string_view text);
[[nodiscard]] Result<std::string> utf8FromPath(const boost::filesystem::path& path);

/// Whether paths begin with a drive letter, as those that callers name must.
extern const bool kPathsNameDrives;

/// Whether a full path with the prefix "\\?\" lies on a drive that is a share elsewhere.
[[nodiscard]] bool isOnNetworkDrive(const std::string& path);

/// Where a full path with the prefix "\\?\" really lies: the final path of the deepest
/// folder on the way that is there, links followed, and the rest behind it. Fails when
/// the system gives another reason than a missing folder for not opening one.
[[nodiscard]] Result<std::string> realPath(const std::string& path);

// ---- Folders of the system ----------------------------------------------------

/// The user's local application-data folder, created when missing.
[[nodiscard]] Result<std::string> userDataFolder();
/// The folder of data that belong to the machine and no user (%ProgramData%).
[[nodiscard]] Result<std::string> machineDataFolder();

// ---- Streams -------------------------------------------------------------------

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { static_cast<void>(std::fclose(file)); }
};
using ScopedFile = std::unique_ptr<std::FILE, FileCloser>;

/// What opening does with a file that is a link, or that has more than one name.
enum class Links : std::uint8_t {
  Follow,
  /// Neither followed nor truncated: the open fails. For files that a privileged
  /// process writes where others may have planted something.
  Refuse,
};

/// What other processes may do with a file while it is open.
enum class Sharing : std::uint8_t {
  Read,
  /// Read, write, rename and delete it.
  All,
};

/// At which step a stream could not be had, and why.
struct OpenFailure {
  enum class Step : std::uint8_t { Open, Descriptor, Stream };
  Step step;
  std::uint32_t code;  ///< never 0; the system's for Step::Open, errno for the others
};
using OpenResult = tl::expected<ScopedFile, OpenFailure>;

/// Opens a stream with the modes of fopen (r, w, a, +, b).
[[nodiscard]] OpenResult openStream(const boost::filesystem::path& path, const char* mode, Sharing sharing,
                                    Links links);

/// Opens a file that others made and may still be writing, to read it. Null, which is no
/// failure, when it is no plain file with a single name: whoever may write to its folder
/// could otherwise have us copy any file for them.
[[nodiscard]] Result<ScopedFile> openPlainFile(const boost::filesystem::path& path);

/// Writes `text` to the file's descriptor, past the C library's buffer, whose content
/// after a failure differs from library to library: some keep what they could not
/// write and write it later, others drop it. The only way in which anything may be
/// written to `file`. Whether all of it was written; some of it may have been.
[[nodiscard]] bool writeThrough(std::FILE& file, std::string_view text) noexcept;

/// Makes an open file `bytes` long again; what its buffer holds is thrown away first.
/// The next write goes where the stream's position is.
bool cutFile(std::FILE& file, std::int64_t bytes) noexcept;

/// Makes an open file empty; what is written next is its beginning.
[[nodiscard]] bool emptyFile(std::FILE& file) noexcept;

/// A file that was made where nothing stood is complete and stays. Without this it goes when
/// it is closed or when this process ends, however that happens (natively: it stays), so
/// that half a file is never taken for a whole one.
[[nodiscard]] Result<void> keepFile(std::FILE& file) noexcept;

/// Moves the stream to its end and returns the size of what it holds in bytes; -1 on failure.
[[nodiscard]] std::int64_t seekToEnd(std::FILE& file) noexcept;

/// Gives a copy, all of which is written, the time at which its original was written.
void copyFileTime(std::FILE& from, std::FILE& to) noexcept;

}  // namespace zarn::os
