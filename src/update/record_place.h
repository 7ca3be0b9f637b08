// Where the service's own record folder is, and whether what lies there is the service's:
// for the service and for who reads what it wrote. Works on Windows alone.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "os/system_error.h"

namespace zarn {

/// "Zarn Update Service" in the machine's common application data; empty when the
/// system does not say where that is.
[[nodiscard]] std::string recordFolderPath();

/// The code for a folder that stands at the place of ours and is not (ERROR_INVALID_OWNER).
inline constexpr std::uint32_t kFolderNotTrusted = 1307;

/// Succeeds when what lies in the folder can be trusted: it is a real folder, no link,
/// whose owner is the system, its administrators, its installer of modules or this
/// process's own user, and nobody else may write to it. Else kFolderNotTrusted, or the
/// system's error, such as that there is none. Follows no link and logs nothing.
[[nodiscard]] Result<void> checkRecordFolder(std::string_view path);

/// Whether the same holds of a security descriptor alone.
[[nodiscard]] bool isTrustedDescriptor(void* descriptor);

}  // namespace zarn
