// The commands of zarn-update that look at this machine or call the service. Each may
// throw; the entry turns that into a local failure.
#pragma once

#include "client/tool/report/answer.h"
#include "client/tool/report/command_line.h"

namespace zarn::tool {

// The service's three procedures.
[[nodiscard]] Answer runCheck(const Arguments& arguments);
[[nodiscard]] Answer runInstall(const Arguments& arguments);
[[nodiscard]] Answer runSetAppData(const Arguments& arguments);

// What the service left behind.
[[nodiscard]] Answer runStatus(const Arguments& arguments);
[[nodiscard]] Answer runHistory(const Arguments& arguments);
[[nodiscard]] Answer runCollectLogs(const Arguments& arguments);

[[nodiscard]] Answer runPurgeLogs(const Arguments& arguments);
[[nodiscard]] Answer runWait(const Arguments& arguments);

[[nodiscard]] Answer runDoctor(const Arguments& arguments);
[[nodiscard]] Answer runVerify(const Arguments& arguments);

}  // namespace zarn::tool
