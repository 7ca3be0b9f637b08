// The boundary between the RPC runtime and the service's own code.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "update/status.h"

namespace zarn {

/// Longer paths are refused unread: Windows itself knows none.
inline constexpr std::size_t kMaximumPathUnits = 32'767;

/// Runs `work` with the caller's path and returns its status. A path that is null
/// or too long, and whatever `work` throws, become a logged error and `fallback`:
/// an exception that entered the RPC runtime would end the process.
[[nodiscard]] Status answerCall(const char* procedure, const wchar_t* path, Status fallback,
                                const std::function<Status(const std::wstring&)>& work) noexcept;

}  // namespace zarn
