// The service with the fault switch in it as its drivers use it: registered, started, called and
// killed from outside. Nothing here waits for ever. Not for two threads at once.
#pragma once

#include <windows.h>

#include <rpc.h>

#include <string>
#include <string_view>

#include "faults/fault_control.h"
#include "os/handles_win.h"
#include "update/interface/update_interface.h"

namespace zarn::faults {

/// What is still not done by then hangs.
inline constexpr DWORD kHangMilliseconds = 20'000;

/// Calls of the service, with connections of their own for each of its processes: Wine's
/// runtime uses one that is broken again and again.
class Caller {
 public:
  Caller() = default;
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;
  ~Caller() { RpcBindingFree(&binding_); }

  void forgetConnections();
  /// What it came to, in a word: its status, "done", or "no answer". The path is UTF-8.
  [[nodiscard]] std::string call(update_interface::Procedure procedure, const std::string& path) const;

 private:
  RPC_BINDING_HANDLE binding_ = nullptr;
};

class FaultyService {
 public:
  /// Kills what a run that was cut short has left.
  FaultyService();

  /// Starts it anew. True when it serves its endpoint and, where the switch counts, has come to
  /// rest; false when its process has ended, or hangs.
  bool start();
  void kill();
  /// Kills the process that started last, also while start() waits for it on another thread.
  void killFromOutside() const;
  bool isAlive(DWORD milliseconds = 0);
  /// "ended CODE", or "hangs" when it has not within the milliseconds.
  std::string end(DWORD milliseconds = kHangMilliseconds);
  /// Sends the stop control, and waits for the end.
  std::string stop();
  /// Caller::call(). One that hangs is given up, "hangs", and the process killed.
  std::string request(update_interface::Procedure procedure, const std::string& path);
  /// How many handles and threads it has; for when no program is just starting (handle_count.h).
  [[nodiscard]] std::size_t held() const;
  /// Waits five seconds for each process of this program to end. One whose maker was killed while it
  /// made it never begins and keeps its file: those that are left are ended, as the next start of
  /// Windows would. True when there was one.
  static bool endOrphans(std::wstring_view program);

  FaultControl control;

 private:
  bool isSettled();

  ServiceHandle manager_{OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
  ServiceHandle service_{OpenServiceW(manager_.get(), L"ZarnUpdateService", SERVICE_ALL_ACCESS)};
  KernelHandle process_;
  Caller caller_;
};

}  // namespace zarn::faults
