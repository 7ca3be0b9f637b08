// The private copy of a bundle that is checked and run.
#pragma once

#include <cstdint>
#include <string>

#include "os/handles_win.h"
#include "os/text.h"
#include "update/status.h"

namespace zarn {

/// Why a bundle is refused by its size and by its name, as records and zarn-update say it.
inline constexpr auto kTooLarge = os::joinedLiterals("more than ", kMaximumBundleWords);
inline constexpr char kNotExe[] = "not \".exe\" in these letters";

/// Whether a bundle may have this size; -1 stands for one that cannot be read and
/// passes, since the copy has a limit of its own.
[[nodiscard]] constexpr bool isAcceptableBundleSize(std::int64_t bytes) noexcept {
  return bytes <= kMaximumBundleBytes;
}

/// Whether the extension is ".exe", in these letters.
[[nodiscard]] bool hasBundleExtension(const std::wstring& path);

/// "ZarnMediaServerUpdate.exe" in the system temporary directory; empty when there
/// is no such directory, so that every operation on it fails.
[[nodiscard]] std::wstring stagedInstallerPath();

/// Whether a bundle's path leads, as it stands, to a drive of this machine and not to
/// a share, a device or a pipe. Opens nothing.
[[nodiscard]] bool isOnThisMachine(const std::wstring& path);

/// Opens a caller's file for reading; nobody can write, rename or delete it while
/// the handle is open. Only files on disks of this machine, and, where shares are
/// allowed, on shares; a pipe or device is let go at once, without its owner being able
/// to act in our name. Invalid on failure, with the last error set.
[[nodiscard]] FileHandle openDiskFile(const std::wstring& path);

/// The same, given up after kOpenLimit.
[[nodiscard]] FileHandle openBundle(const std::wstring& path);

/// Copies `from` to `to`, replacing what is there without writing through it: a
/// hard link planted at `to` loses its name and its file stays as it was. Ends
/// as soon as more than `maximumBytes` have been copied, or after kCopyLimit. Sets
/// the last error on failure.
[[nodiscard]] bool copyBundle(const std::wstring& from, const std::wstring& to,
                              std::int64_t maximumBytes = kMaximumBundleBytes);

/// Opens the copy as openBundle does. Refused when it is a link or has a second
/// name, which would let its owner change what is checked here.
[[nodiscard]] FileHandle openStagedCopy(const std::wstring& path);

}  // namespace zarn
