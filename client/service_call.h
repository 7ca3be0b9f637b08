// One call of the service, on the thread that asks for it and for as long as it takes.
#pragma once

#include <cstdint>
#include <string>

namespace zarn::client {

/// The procedures, by what they do, and the question whether somebody serves the endpoint.
enum class Request : std::uint8_t { SetAppData, Check, Install, Probe };

/// Why a call has no answer, by what a caller can do about it.
enum class Ending : std::uint8_t {
  Answered,
  NotRunning,   ///< nobody serves the endpoint; nothing was done
  Refused,      ///< not let in, or not the system; nothing was done
  Interrupted,  ///< whether the work was done is unknown
  Other,        ///< anything else, which may mean the same
};

struct Reply {
  Ending ending = Ending::Other;
  std::uint32_t rpcStatus = 0;  ///< 0 of an answered call
  std::int32_t status = 0;
  std::int32_t exitCode = 0;
};

/// The path has no zero in it; a probe has none. Never throws what the service or the RPC runtime raises.
[[nodiscard]] Reply callService(Request request, const std::wstring& path) noexcept;

}  // namespace zarn::client
