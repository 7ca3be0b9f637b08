// What a path that others chose for application data leads to, found out before
// anything on it is opened: opening a share makes the machine sign in there, and
// opening a device or a pipe talks to whoever serves it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zarn {

enum class PathKind : std::uint8_t {
  /// A full path on a drive of this machine: the only kind that is used.
  LocalFolder,
  Share,
  Device,
  Relative,
  Malformed,
  /// In or below a folder of the service's own.
  OwnPlace,
  /// On a drive, but the system does not say where it leads.
  Unreachable,
};

/// Ends the sentence "The path is not used: it is ...".
[[nodiscard]] std::string_view describe(PathKind kind) noexcept;

/// Judges the text alone: one of the first five kinds. UTF-8; "/" and "\" are the same.
/// A local folder's path begins with a drive letter, a colon and a separator, or with
/// "\\?\" and these; no component of it has the name of a device or an ambiguous end.
[[nodiscard]] PathKind judgePath(std::string_view path) noexcept;

/// A local folder's path without "." and "..", with single backslashes, and "\\?\" before it.
[[nodiscard]] std::string resolveDots(std::string_view localFolder);

/// Judges the text, then the drive, then where the logs below the path would really
/// lie, links followed: opens nothing that the earlier judgements refuse. Paths are
/// refused for PathKind::OwnPlace when they lead into or below one of `ownFolders`.
[[nodiscard]] PathKind judgeAppDataPath(std::string_view path, const std::vector<std::string>& ownFolders);

/// Whether a path of this kind may be used. Shares may where the machine's environment
/// says so.
[[nodiscard]] bool isUsable(PathKind kind);

/// The folders in which nobody else's data may lie: of this program, of temporary
/// files, of the service's own records.
[[nodiscard]] std::vector<std::string> ownFoldersOf(const std::string& program);
[[nodiscard]] std::vector<std::string> ownFolders();

/// Full path of the running program. One that was never found out ends the process (logFatal).
[[nodiscard]] std::string programPath();

/// Whether a folder's real path (of a handle) is one of `folders` or below one.
[[nodiscard]] bool liesIn(std::string_view realPath, const std::vector<std::string>& folders);

}  // namespace zarn
