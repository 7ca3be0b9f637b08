// A path of the system's that stays what it was: once it has been found out, a look-up that fails
// later (memory may be short) changes nothing.
#pragma once

#include <string>

#include "os/system_error.h"
#include "util/mutex.h"

namespace zarn {

/// May be used from any thread.
class Remembered {
 public:
  /// What was found, or what was found the last time; the failure when nothing ever was.
  [[nodiscard]] Result<std::string> orLast(Result<std::string> found) ZARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (found) {
      value_ = *found;
    } else if (!value_.empty()) {
      return value_;
    }
    return found;
  }

 private:
  Mutex mutex_;
  std::string value_ ZARN_GUARDED_BY(mutex_);
};

}  // namespace zarn
