// Who asked for something, for the record and for sharing out places.
#pragma once

#include <cstdint>
#include <string>

namespace zarn {

/// Texts are UTF-8 and empty, the number 0, where the system does not tell.
struct Caller {
  std::string sid;  ///< the security identifier of the user, "S-1-5-..."
  std::uint32_t processId = 0;
  /// The program that the process runs: a path whose names others chose.
  std::string image;
};

}  // namespace zarn
