// A bundle on its way to being run: the file that a caller names, the private copy that
// is checked and run in its stead, and that copy's hash.
#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "os/handles_win.h"
#include "os/system_error.h"
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

// ---- The caller's file ----------------------------------------------------------

/// Whether a bundle's path leads, as it stands, to a drive of this machine and not to
/// a share, a device or a pipe. Opens nothing.
[[nodiscard]] bool isOnThisMachine(const std::wstring& path);

/// Opens a caller's file for reading; nobody can write, rename or delete it while
/// the handle is open. Only files on disks of this machine, and, where shares are
/// allowed, on shares; a pipe or device is let go at once, without its owner being able
/// to act in our name.
[[nodiscard]] Result<FileHandle> openDiskFile(const std::wstring& path);

/// The same, given up after kOpenLimit.
[[nodiscard]] Result<FileHandle> openBundle(const std::wstring& path);

// ---- The private copy -------------------------------------------------------------

/// "ZarnMediaServerUpdate.exe" in the system temporary directory; empty when there
/// is no such directory, so that every operation on it fails.
[[nodiscard]] std::wstring stagedInstallerPath();

/// Copies `from` to `to`, replacing what is there without writing through it: a
/// hard link planted at `to` loses its name and its file stays as it was. Ends
/// as soon as more than `maximumBytes` have been copied, or after kCopyLimit.
[[nodiscard]] Result<void> copyBundle(const std::wstring& from, const std::wstring& to,
                                      std::int64_t maximumBytes = kMaximumBundleBytes);

/// Opens the copy as openBundle does. Refused when it is a link or has a second
/// name, which would let its owner change what is checked here.
[[nodiscard]] Result<FileHandle> openStagedCopy(const std::wstring& path);

/// The SHA-256 of an open file, worked out while its owner does something else.
class BackgroundDigest {
 public:
  /// Reads `file` to its end on a thread of its own. The handle must allow reading,
  /// outlive the object and be used by nobody else meanwhile.
  explicit BackgroundDigest(HANDLE file) noexcept;
  BackgroundDigest(const BackgroundDigest&) = delete;
  BackgroundDigest& operator=(const BackgroundDigest&) = delete;
  ~BackgroundDigest() { finish(); }

  /// Waits for the end: 64 lower-case hexadecimal digits; empty when the file cannot
  /// be read or no thread was to be had.
  const std::string& finish() noexcept;

 private:
  std::string digest_;
  std::thread thread_;
};

}  // namespace zarn
