// Acting with somebody else's rights instead of ours. Includes windows.h: only for files
// that call Windows.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "os/handles_win.h"

namespace zarn {

// ---- The caller of the call that a thread of the RPC runtime serves. Elsewhere there is
// none, and each of these fails.

/// Makes the thread act as the caller for a scope. A revert that fails ends the
/// process: nothing of ours may run on with somebody else's rights, or theirs with ours.
class Impersonation {
 public:
  Impersonation() noexcept;
  Impersonation(const Impersonation&) = delete;
  Impersonation& operator=(const Impersonation&) = delete;
  ~Impersonation() { revert(); }

  /// 0, or the error for which the thread does not act as the caller.
  [[nodiscard]] DWORD error() const noexcept { return error_; }
  /// The caller's token; invalid when it cannot be had.
  [[nodiscard]] const KernelHandle& token() const noexcept { return token_; }
  /// Whether the caller lets the service act in its name, and not only look who it is.
  [[nodiscard]] bool isComplete() const noexcept { return isComplete_; }

  void revert() noexcept;

 private:
  DWORD error_;
  KernelHandle token_;
  bool isComplete_ = false;
  bool isActive_;
};

/// Opens a bundle as openBundle() does, with the caller's rights. A caller that only
/// lets itself be identified must have the right to read a file that lies on a drive
/// of this machine.
[[nodiscard]] Result<FileHandle> openBundleAsCaller(const std::wstring& path);

/// Runs `work` as the caller; nothing is run when the caller does not allow it.
Result<void> runAsCaller(const std::function<void()>& work);

}  // namespace zarn
