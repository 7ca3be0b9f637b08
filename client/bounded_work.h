// Work whose end nobody has to wait for. Includes windows.h: only for files that call Windows.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "os/handles_win.h"

namespace zarn::client {

/// What a thread of its own does, with what it needs and what comes of it. It may go on when
/// nobody waits for it any more, so it points to nothing of its caller's.
class Work {
 public:
  Work() = default;
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;
  virtual ~Work() = default;
  virtual void run() noexcept = 0;
};

enum class WaitEnd : std::uint8_t {
  Done,
  TimedOut,   ///< the work goes on
  Cancelled,  ///< the work goes on
  TooMany,    ///< nothing was begun: so many others go on already
  NoThread,   ///< nothing was begun
};

/// Of a process. A service that does not answer must not cost a caller, who asks again and again,
/// a thread each time.
inline constexpr long kMostWorks = 64;

/// Runs `work` on a thread and waits for its end, until `limit` (milliseconds, or INFINITE) is over
/// or `cancel`, if there is one, is set. The thread acts for whom this one acts for, and holds on to the
/// module that this code is in until it ends: a library may be given back meanwhile.
[[nodiscard]] WaitEnd runBounded(std::shared_ptr<Work> work, DWORD limit, const KernelHandle& cancel);

}  // namespace zarn::client
