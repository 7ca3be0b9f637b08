// What `status --check` tells a monitoring system.
#pragma once

#include <string>
#include <vector>

#include "client/tool/report/answer.h"
#include "client/tool/report/findings.h"
#include "client/tool/report/service_state.h"

namespace zarn::tool {

/// Whether a service that does not run may be on its way back, as after an update, when it
/// ends in order to be started anew.
[[nodiscard]] bool mayBeComingBack(const Result<ServiceFacts>& service);

/// One line: that all is well, or everything that is not. Exit code 3 when the service does
/// not run; 1 when the last update failed or a check of the `configuration` did; else 0. The
/// last update, the only request in `lastUpdate`, is the newest for which an installer was
/// started: that a bundle was refused since then is only mentioned, because any user can bring
/// that about. The object is that of `status`, with the sentences of the line.
[[nodiscard]] Answer checkedStatusAnswer(const ServiceReport& report, const Result<History>& lastUpdate,
                                         const std::vector<Finding>& configuration);

}  // namespace zarn::tool
