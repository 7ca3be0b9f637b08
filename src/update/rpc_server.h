// The service's side of the RPC runtime: the endpoint, the interface, and the
// routines that take calls, check their arguments and pass them on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zarn::rpc_server {

/// Longer paths are refused unread: Windows itself knows none.
inline constexpr std::size_t kMaximumPathUnits = 32'767;

// Each answers an RPC status, 0 for success.

/// Opens the local endpoint.
[[nodiscard]] std::uint32_t openEndpoint();
/// Offers the interface to local, authenticated callers.
[[nodiscard]] std::uint32_t registerInterface();
/// Takes calls until stopListening(), then returns when no call is left.
[[nodiscard]] std::uint32_t listen();
/// From any thread, that of a call included. Does not wait.
[[nodiscard]] std::uint32_t stopListening();

}  // namespace zarn::rpc_server
