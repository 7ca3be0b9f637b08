// Structured exceptions as return values, for a compiler without __try.
#pragma once

#include <cstdint>

namespace zarn::client {

/// Calls `routine(context)`. Returns 0 when it returned, and the status when it
/// raised an RPC status as a structured exception, which is how the RPC runtime
/// reports a failed call. Any other exception (an access violation, say) passes
/// on. The frames between here and the raise are unwound without running C++
/// destructors: `routine` must have none on its stack.
std::uint32_t callCatchingRpcExceptions(void (*routine)(void*), void* context) noexcept;

}  // namespace zarn::client
