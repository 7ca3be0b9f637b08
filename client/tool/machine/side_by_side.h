// Checks that may hang, each with a limit, so that the whole of them comes to an end.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "client/tool/machine/within.h"
#include "client/tool/report/findings.h"

namespace zarn::tool {

/// Runs checks beside each other. A check that outlasts its limit is reported as such, and its
/// thread left behind (see BegunWork).
class SideBySide {
 public:
  using Check = std::function<std::vector<Finding>()>;

  /// Begins a check. `name` is that of its first finding, for one that does not come to an end.
  void begin(std::string name, std::chrono::seconds limit, Check check);

  /// Once, after the last check was begun. What they found, in the order in which they were begun.
  [[nodiscard]] std::vector<Finding> collect();

 private:
  struct Running {
    std::string name;
    std::chrono::seconds limit;
    std::chrono::steady_clock::time_point due;
    BegunWork<std::vector<Finding>> work;
  };
  std::vector<Running> running_;
};

}  // namespace zarn::tool
