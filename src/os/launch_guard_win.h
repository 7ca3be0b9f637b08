// What this process is starting, and how that depends on it. Includes windows.h: only for files
// that call Windows.
#pragma once

#include <windows.h>

namespace zarn::os {

/// While one lives, the end of this process also ends a process that it starts meanwhile: one
/// whose maker was ended while the system made it would never run, and keep its file from being
/// replaced or deleted for good. What was started outlives us once the guard is gone.
///
/// The process is put into a job of its own for that, and stays in it with all that it starts.
/// Where the system gives none, or something that was started earlier still runs in it, which
/// must not end with us, there is no such protection. For one thread at a time.
class LaunchGuard {
 public:
  LaunchGuard() noexcept;
  LaunchGuard(const LaunchGuard&) = delete;
  LaunchGuard& operator=(const LaunchGuard&) = delete;
  ~LaunchGuard();

 private:
  HANDLE job_ = nullptr;  ///< null when nothing is guarded
};

}  // namespace zarn::os
