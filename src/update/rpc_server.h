// The service's side of the RPC runtime: the endpoint, the interface, and the
// routines that pass calls on.
#pragma once

#include <cstdint>

namespace zarn::rpc_server {

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
