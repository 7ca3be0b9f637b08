// What `doctor` found, and how it says that.
#pragma once

#include <string>
#include <vector>

#include "client/tool/report/answer.h"

namespace zarn::tool {

/// One check. Texts are UTF-8 and not yet fit to be shown.
struct Finding {
  std::string name;
  bool ok = false;
  std::string found;
  /// What to do, a sentence without a full stop. Of a check that is well it is a warning;
  /// empty when there is nothing to do.
  std::string advice;
};

/// "not there. Next: Make it", not yet fit to be shown.
[[nodiscard]] std::string foundAndAdvised(const Finding& finding);

[[nodiscard]] Answer doctorAnswer(const std::vector<Finding>& findings);

}  // namespace zarn::tool
