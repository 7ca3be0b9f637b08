// The three procedures through the caller's library, for UTF-8 test code.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "client/update_client.h"
#include "util/string_utils.h"

namespace zarn::testing {

/// Status and exit code, or neither when no answer came.
struct Answer {
  std::optional<long> status, exitCode;
  friend bool operator==(const Answer&, const Answer&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    return out << "status " << answer.status.value_or(-1) << ", exit code " << answer.exitCode.value_or(-1);
  }
};

inline Answer install(const std::string& path) {
  const auto result = client::UpdateClient().install(StringUtils::utf8to16(path));
  return result.ok() ? Answer{result.value().status, result.value().installerExitCode} : Answer{};
}
inline std::optional<long> check(const std::string& path) {
  const auto result = client::UpdateClient().checkBundle(StringUtils::utf8to16(path));
  return result.ok() ? std::optional<long>(result.value()) : std::nullopt;
}
inline bool setAppDataPath(const std::string& path) {
  return client::UpdateClient().setAppDataPath(StringUtils::utf8to16(path)).ok();
}

}  // namespace zarn::testing
