// Told by the environment variable ZARN_HELPER what to do:
//   "N MS"    sleeps MS milliseconds, writes its command line to the file that
//             ZARN_HELPER_RECORD names, and ends with exit code N
//   "launch" and "leave"   start itself as "0 60000", note the process's number in the record, and
//             die under a launch guard or after it
//   "serve"   serves UpdateInterface and dies in the first call
//   "answer STATUS"   serves it and answers installs with the status, while the event "zarn-answer"
//             is set if there is one
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string_view>

#include "os/launch_guard_win.h"
#include "update/interface/update_interface.h"

namespace {

long status = 0;

int launch(bool leaves) {
  _putenv("ZARN_HELPER=0 60000");
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  std::optional<zarn::os::LaunchGuard> guard(std::in_place);
  CreateProcessA(nullptr, GetCommandLineA(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                 &started);
  if (leaves) guard.reset();
  std::ofstream(std::getenv("ZARN_HELPER_RECORD")) << started.dwProcessId;
  return TerminateProcess(GetCurrentProcess(), 0);
}

int serve(const zarn::update_interface::ServerRoutines& routines, unsigned calls) {
  namespace wire = zarn::update_interface;
  wire::ServerInterface served(routines);
  RpcServerUseProtseqEpW(wire::rpcText(wire::kProtocolSequence), calls, wire::rpcText(wire::kEndpoint),
                         nullptr);
  RpcServerRegisterIf(served.handle(), nullptr, nullptr);
  return static_cast<int>(RpcServerListen(1, calls, FALSE));
}

}  // namespace

int main() {
  const char* const given = std::getenv("ZARN_HELPER");
  const std::string_view order(given != nullptr ? given : "");
  if (order == "launch" || order == "leave") return launch(order == "leave");
  if (order == "serve") {
    const auto die = [](auto...) -> long { return TerminateProcess(GetCurrentProcess(), 1); };
    return serve({[](handle_t, const wchar_t*) { TerminateProcess(GetCurrentProcess(), 1); }, die, die}, 1);
  }
  if (std::sscanf(order.data(), "answer %ld", &status) == 1) {
    const auto install = [](handle_t, const wchar_t*, long* exitCode) -> long {
      WaitForSingleObject(OpenEventW(SYNCHRONIZE, FALSE, L"zarn-answer"), INFINITE);
      *exitCode = 7;
      return status;
    };
    return serve({[](handle_t, const wchar_t*) {}, [](handle_t, const wchar_t*) { return 0L; }, install},
                 100);
  }
  unsigned exitCode = 0;
  unsigned long sleepMs = 0;
  if (std::sscanf(order.data(), "%u %lu", &exitCode, &sleepMs) == 2) Sleep(sleepMs);
  std::ofstream(std::getenv("ZARN_HELPER_RECORD")) << GetCommandLineA();
  ExitProcess(exitCode);
}
