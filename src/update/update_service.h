// The update service: opens the local endpoint, serves calls until told to stop.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "service/win32_service.h"
#include "update/bounded_listener.h"
#include "update/call_queue.h"
#include "update/rpc_server.h"
#include "update/status.h"

namespace zarn {

class UpdateService final : public Win32Service, public ServedCalls {
 public:
  // How many calls run at once, and how many may wait behind them.
  static constexpr CallQueue::Limits kInstalls{.running = 1, .waiting = 16};
  static constexpr CallQueue::Limits kChecks{.running = 8, .waiting = 512};
  static constexpr CallQueue::Limits kSettings{.running = 2, .waiting = 32};
  /// Installs without a turn while they are recorded; further ones leave a log line only.
  static constexpr CallQueue::Limits kRefusals{.running = 2, .waiting = 32};

  UpdateService();

  /// The one that the process runs and that calls reach. Made on first use.
  [[nodiscard]] static UpdateService& instance();

  /// Tries for kEndpointSeconds when somebody else holds the endpoint: the process
  /// that was here before may still be ending.
  std::uint32_t initialize() override;
  /// Does not return after requestRestart(): the process ends with kRestartCode
  /// and without a stopped report, which the control manager takes for a failure
  /// and answers with its recovery action.
  std::uint32_t run() override;
  std::uint32_t stop() override;

  /// Ends listening; run() then ends the process when all calls are answered.
  void requestRestart();

  // ---- The procedures' work. Each waits for its turn, and fails when there is none: too
  // many wait, the caller is gone, the service stops.

  Status Install(const Requester& requester, const std::wstring& bundlePath, std::int32_t& exitCode) override;
  [[nodiscard]] Status CheckBundle(const Requester& requester, const std::wstring& bundlePath) override;
  /// Stores the media server's local application-data directory as the preference
  /// LocalAppDataPath and moves the service's log there at once: the next line is the last
  /// in the old file. Failures are logged only.
  void setLocalAppDataPath(const Requester& requester, const std::wstring& path) override;

 private:
  /// A turn in `queue`; without one a line says why `procedure` does nothing for `path`.
  CallQueue::Turn takeTurn(CallQueue& queue, const Requester& requester, const char* procedure,
                           const std::wstring& path);

  CallQueue installs_{kInstalls};
  CallQueue checks_{kChecks};
  CallQueue settings_{kSettings};
  CallQueue refusals_{kRefusals};
  BoundedListener listener_;
  std::atomic<std::uint32_t> restartCode_{0};
};

}  // namespace zarn
