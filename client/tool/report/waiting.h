// Whether the service is installing an update, and what `wait` says of that.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "client/tool/report/answer.h"
#include "client/tool/report/service_state.h"
#include "os/system_error.h"
#include "update/under_way.h"

namespace zarn::tool {

/// The service's process, as client/install_under_way.h wants it.
[[nodiscard]] Result<std::uint32_t> processOf(const Result<ServiceFacts>& service);

/// How a wait ended: with nothing, with what is still being installed, or without knowing.
/// That others may have written to the record folder (kFolderNotTrusted) is said and is no
/// failure, or whoever made that folder before the service could keep every package away.
[[nodiscard]] Answer waitAnswer(const Result<std::optional<InstallUnderWay>>& installing,
                                std::chrono::milliseconds waited);

}  // namespace zarn::tool
