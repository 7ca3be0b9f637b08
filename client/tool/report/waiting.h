// Whether the service is installing an update, and what `wait` says of that.
#pragma once

#include <chrono>
#include <optional>

#include "client/tool/report/answer.h"
#include "client/tool/report/service_state.h"
#include "os/system_error.h"
#include "update/install_record.h"

namespace zarn::tool {

/// Whether what stands in the record folder is of the service that there is now. One that
/// a power cut left is not; one that cannot be read counts while the service has a process.
[[nodiscard]] bool isUnderWay(const InstallUnderWay& shown, const Result<ServiceFacts>& service);

/// How a wait ended: with nothing, with what is still being installed, or without knowing.
/// That others may have written to the record folder (kFolderNotTrusted) is said and is no
/// failure, or whoever made that folder before the service could keep every package away.
[[nodiscard]] Answer waitAnswer(const Result<std::optional<InstallUnderWay>>& installing,
                                std::chrono::milliseconds waited);

}  // namespace zarn::tool
