// What the service shows of the install request that it is working on, in a file of its
// record folder: for who reads that.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zarn {

/// An install request that is being worked on, as others may read of it meanwhile.
struct InstallUnderWay {
  std::string since;            ///< as the time of its record
  std::uint32_t processId = 0;  ///< the service's; 0 when a text does not say
  std::string path;             ///< shortened and printable
};

/// Reads a text of any origin. What it lacks is empty, or 0.
[[nodiscard]] InstallUnderWay parseInstalling(std::string_view text);

}  // namespace zarn
