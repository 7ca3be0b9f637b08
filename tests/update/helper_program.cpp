// Told by the environment variable ZARN_HELPER what to do:
//   "N MS"    sleeps MS milliseconds, writes its command line to the file that
//             ZARN_HELPER_RECORD names, and ends with exit code N
//   "serve"   serves UpdateInterface and dies in the first call
//   "answer"  serves it and answers installs with 30001 while the event "zarn-answer" is set
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "update/interface/update_interface.h"

namespace {

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
  if (order == "serve") {
    const auto die = [](auto...) -> long { return TerminateProcess(GetCurrentProcess(), 1); };
    return serve({[](handle_t, const wchar_t*) { TerminateProcess(GetCurrentProcess(), 1); }, die, die}, 1);
  }
  if (order == "answer") {
    const auto install = [](handle_t, const wchar_t*, long* exitCode) -> long {
      WaitForSingleObject(OpenEventW(SYNCHRONIZE, FALSE, L"zarn-answer"), INFINITE);
      *exitCode = 7;
      return 30001;
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
