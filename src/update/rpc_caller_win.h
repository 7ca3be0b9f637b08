// The caller of the RPC call that a thread serves: who it is, whether it is still
// there, and opening files with its rights instead of ours. Includes windows.h: only
// for files that call Windows. All of it only on a thread of the RPC runtime, during a call.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "os/handles_win.h"
#include "update/requester.h"

namespace zarn {

/// Who calls. What the system does not tell stays empty.
[[nodiscard]] Requester currentRequester();

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
/// of this machine. Invalid on failure, with the last error set.
[[nodiscard]] FileHandle openBundleAsCaller(const std::wstring& path);

/// Runs `work` as the caller; false, with the last error set and nothing run, when the
/// caller does not allow it.
bool runAsCaller(const std::function<void()>& work);

}  // namespace zarn
