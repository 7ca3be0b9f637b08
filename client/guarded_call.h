// RPC's structured exceptions as return values.
#pragma once

#include <cstdint>

namespace zarn::client {

/// Calls `routine(context)`. Returns 0 when it returned, and the code when it
/// raised a structured exception, which is how the RPC runtime reports a failed
/// call, and a fault of the server with the server's code. C++ exceptions pass on,
/// and so do the codes that RpcExceptionFilter calls fatal (an access violation,
/// say). `routine` must have no object with a destructor on its stack: see
/// util/structured_exception.h.
std::uint32_t callCatchingRpcExceptions(void (*routine)(void*), void* context);

}  // namespace zarn::client
