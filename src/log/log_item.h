// One message on its way from the thread that logs it to the file.
#pragma once

#include <cstdint>
#include <string>

#include "os/clock.h"
#include "util/logging.h"

namespace zarn {

struct LogStamp {
  LogLevel level = LogLevel::Info;
  std::uint32_t threadId = 0;  ///< of the thread that logged
  WallTime time;               ///< when it was logged, not when it is written
};

struct LogItem : LogStamp {
  std::string message;  ///< UTF-8, formatted, context prefix included
};

}  // namespace zarn
