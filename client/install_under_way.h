// Whether the service is installing an update, by what stands in its record folder.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "os/system_error.h"
#include "update/under_way.h"

namespace zarn::client {

/// Of a service that the service control manager does not have.
inline constexpr SystemError kServiceNotInstalled(1060);  // ERROR_SERVICE_DOES_NOT_EXIST

/// Whether what stands in the record folder is of the service that there is now, whose process
/// is given (0: it has none), or why that is not known. One that a power cut left is not; one
/// that cannot be read counts while the service has a process.
[[nodiscard]] inline bool isUnderWay(const InstallUnderWay& shown,
                                     const zarn::Result<std::uint32_t>& process) {
  if (!process) return process.error() != kServiceNotInstalled;
  return *process != 0 && (shown.processId == 0 || shown.processId == *process);
}

/// The install request that the service is working on; nothing when there is none. Fails when
/// that cannot be told: with kFolderNotTrusted when others may have written to the folder. On
/// Windows alone.
[[nodiscard]] zarn::Result<std::optional<InstallUnderWay>> installUnderWay(
    const std::string& folder, const zarn::Result<std::uint32_t>& process);

}  // namespace zarn::client
