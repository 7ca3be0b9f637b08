// What the service control manager knows of the service's process. Includes windows.h: only
// for files that call Windows.
#pragma once

#include <windows.h>

#include "os/handles_win.h"
#include "os/system_error.h"

// The headers for callers have a client::Result of their own.
namespace zarn::client {

/// The service with the rights that are asked for, which any user may have for queries.
[[nodiscard]] zarn::Result<ServiceHandle> openService(DWORD rights);

/// Its state, process and last exit code; `service` was opened with SERVICE_QUERY_STATUS.
[[nodiscard]] zarn::Result<SERVICE_STATUS_PROCESS> queryProcess(const ServiceHandle& service);

}  // namespace zarn::client
