// Who asks for an install or a check, seen from its request.
#pragma once

#include <functional>

#include "update/install_record.h"

namespace zarn {

struct Requester {
  Caller caller;
  /// Whether nobody waits for the answer any more; empty when that cannot be told.
  /// Quick, from any thread.
  std::function<bool()> isGone;
};

}  // namespace zarn
