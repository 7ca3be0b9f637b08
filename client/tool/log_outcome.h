// The outcome of the last install request, told from the service's log: for a
// service that keeps no history. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zarn::tool {

struct LogOutcome {
  std::string time;  // local, as in the log
  std::string bundle;
  std::int32_t status = 0;
  std::optional<std::uint32_t> installerExitCode;
};

/// Nothing when the text holds no request that came to an end.
[[nodiscard]] std::optional<LogOutcome> lastOutcome(std::string_view log);

}  // namespace zarn::tool
