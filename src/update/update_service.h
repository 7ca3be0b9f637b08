// The update service: opens the local endpoint, serves calls until told to stop.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "service/win32_service.h"
#include "update/status.h"

namespace zarn {

/// The exit code with which the process asks to be started anew after an update
/// took effect (ERROR_RESTART_APPLICATION).
inline constexpr std::uint32_t kRestartCode = 1467;

class UpdateService final : public Win32Service {
 public:
  UpdateService() = default;

  /// The one that the process runs and that calls reach. Made on first use.
  [[nodiscard]] static UpdateService& instance();

  std::uint32_t initialize() override;
  /// Does not return after requestRestart(): the process ends with kRestartCode
  /// and without a stopped report, which the control manager takes for a failure
  /// and answers with its recovery action.
  std::uint32_t run() override;
  std::uint32_t stop() override;

  /// Ends listening; run() then ends the process when all calls are answered.
  void requestRestart();

  // ---- The procedures' work, on a thread of the RPC runtime.

  Status Install(const std::wstring& bundlePath, std::int32_t& exitCode);
  [[nodiscard]] Status CheckBundle(const std::wstring& bundlePath);

 private:
  std::atomic<std::uint32_t> restartCode_{0};
  std::atomic<bool> stopped_{false};  ///< listening has ended, or is told to
};

}  // namespace zarn
