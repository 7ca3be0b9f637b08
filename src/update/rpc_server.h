// The service's side of the RPC runtime: the endpoint, the interface, and the routines
// that pass calls on to whoever does their work.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "update/install_record.h"
#include "update/status.h"

namespace zarn {

/// Who asks for an install or a check, seen from its request.
struct Requester {
  Caller caller;
  /// Whether nobody waits for the answer any more; empty when that cannot be told.
  /// Quick, from any thread.
  std::function<bool()> isGone;
};

/// The work of the three procedures. Each is called on a thread of the RPC runtime,
/// many at a time, with a path that is neither endless nor to be trusted. What they throw
/// is logged and answered as a failure.
class ServedCalls {
 public:
  ServedCalls() = default;
  ServedCalls(const ServedCalls&) = delete;
  ServedCalls& operator=(const ServedCalls&) = delete;

  /// `exitCode` is 0, and stays so when no installer was to run.
  virtual Status Install(const Requester& requester, const std::wstring& bundlePath,
                         std::int32_t& exitCode) = 0;
  [[nodiscard]] virtual Status CheckBundle(const Requester& requester, const std::wstring& bundlePath) = 0;
  virtual void setLocalAppDataPath(const Requester& requester, const std::wstring& path) = 0;

 protected:
  ~ServedCalls() = default;
};

namespace rpc_server {

/// Longer paths are refused unread: Windows itself knows none.
inline constexpr std::size_t kMaximumPathUnits = 32'767;

/// Runs `work` with the caller's path and returns its status. A path that is null
/// or too long, and whatever `work` throws, become a logged error and `fallback`:
/// an exception that entered the RPC runtime would end the process.
[[nodiscard]] Status answerCall(const char* procedure, const wchar_t* path, Status fallback,
                                const std::function<Status(const std::wstring&)>& work) noexcept;

// ---- On Windows alone. Each answers an RPC status, 0 for success.

/// Opens the local endpoint.
[[nodiscard]] std::uint32_t openEndpoint();
/// Offers the interface to local, authenticated callers. Their calls go to `calls`, which
/// lives as long as the process. Call it once.
[[nodiscard]] std::uint32_t registerInterface(ServedCalls& calls);
/// Takes calls until stopListening(), then returns when no call is left.
[[nodiscard]] std::uint32_t listen();
/// From any thread, that of a call included. Does not wait.
[[nodiscard]] std::uint32_t stopListening();

}  // namespace rpc_server
}  // namespace zarn
