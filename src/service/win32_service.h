// One object as the Windows service of its process: connects to the service
// control manager, reports every change of state and routes control requests.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "os/system_error.h"

namespace zarn {

/// The three calls to the service control manager, which can fail but not be made to fail
/// for a test.
class ServiceControl {
 public:
  /// Blocks until the service has ended, for which the process's first thread is used up.
  virtual Result<void> startDispatcher(const SERVICE_TABLE_ENTRYW* services) = 0;
  virtual Result<SERVICE_STATUS_HANDLE> registerHandler(const wchar_t* name,
                                                        LPHANDLER_FUNCTION_EX handler) = 0;
  virtual Result<void> setStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS& status) = 0;

  /// The one in use: Windows' own unless a test has put another in its place.
  [[nodiscard]] static ServiceControl& current() noexcept;

  /// Takes `control` (null: Windows' own) from here on. It must outlive its use.
  static void use(ServiceControl* control) noexcept;

 protected:
  ~ServiceControl() = default;
};

/// Derive, and call runAsService() on the one instance. Codes are Win32 error
/// codes; 0 is success.
class Win32Service {
 public:
  Win32Service() = default;
  Win32Service(const Win32Service&) = delete;
  Win32Service& operator=(const Win32Service&) = delete;

  // ---- What the service does. Exactly these three are virtual.

  /// On the service thread, before the service counts as running.
  virtual std::uint32_t initialize() = 0;
  /// On the service thread; blocks while the service works. Returns the exit code to report.
  virtual std::uint32_t run() = 0;
  /// Makes run() return. On the dispatcher's thread, while run() blocks.
  virtual std::uint32_t stop() = 0;

  // ---- The framework.

  /// Blocks until the service has ended. `name` is UTF-8. Returns the error when
  /// the control manager cannot be reached, as from a console. Throws
  /// std::logic_error when the process has run a service before.
  std::uint32_t runAsService(std::string_view name);

  /// The life of the service, on a thread that the dispatcher makes.
  void serviceMain();

  /// What the dispatcher's thread does when serviceMain() has returned and the control
  /// manager was not told that the service stopped: it would wait for ever for a
  /// process that does nothing any more. The routine gets the code of the failed
  /// start, or 1 without one, and what initialize() threw (else empty), and is expected to
  /// end the process with the code, which the control manager takes for a failure to
  /// recover from. Set it before runAsService().
  using UnfinishedRoutine = std::function<void(std::uint32_t code, std::string_view reason)>;
  void setUnfinishedRoutine(UnfinishedRoutine routine);
  /// For the dispatcher's thread: runs that routine if it is due.
  void endUnfinished();

  /// One control request, on the dispatcher's thread. The control manager is
  /// answered with success whatever this returns.
  std::uint32_t serviceCtrlHandler(std::uint32_t control);

  /// Forgets that a service has run, so that a test program can run one after another.
  static void forgetRegistered() noexcept;

 protected:
  // Never destroyed through this class: the process ends without it.
  ~Win32Service() = default;

 private:
  // Each reports one state and answers 0, or logs and answers the error.
  std::uint32_t sendServiceStartPending();
  std::uint32_t sendServiceRunning();
  std::uint32_t sendServiceStopPending();
  std::uint32_t sendServiceStopped(std::uint32_t exitCode);

  bool initializeGuarded();
  std::uint32_t runGuarded();
  void stopRunning();
  std::uint32_t report(const SERVICE_STATUS& status, const char* operation);

  std::wstring name_;
  SERVICE_STATUS_HANDLE statusHandle_ = nullptr;
  // The only copy of what was reported. Written without a lock from the service
  // thread and, once the service runs, from the dispatcher's.
  SERVICE_STATUS status_{};
  // Only the service thread's, once it runs.
  UnfinishedRoutine unfinishedRoutine_;
  std::uint32_t unfinishedCode_ = ERROR_INVALID_FUNCTION;
  std::string unfinishedReason_;
  bool isFinished_ = false;
};

}  // namespace zarn
