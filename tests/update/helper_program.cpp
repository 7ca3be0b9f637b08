// Told by the environment variable ZARN_HELPER what to do:
//   "N MS"    sleeps MS milliseconds, writes its command line to the file that
//             ZARN_HELPER_RECORD names, and ends with exit code N
//   "serve"   serves UpdateInterface and dies in the first call
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "update/interface/update_interface.h"

int main() {
  namespace wire = zarn::update_interface;
  const char* const given = std::getenv("ZARN_HELPER");
  const std::string_view order(given != nullptr ? given : "");
  if (order == "serve") {
    const auto die = [](auto...) -> long { return TerminateProcess(GetCurrentProcess(), 1); };
    wire::ServerInterface served(
        {[](handle_t, const wchar_t*) { TerminateProcess(GetCurrentProcess(), 1); }, die, die});
    RpcServerUseProtseqEpW(wire::rpcText(wire::kProtocolSequence), 1, wire::rpcText(wire::kEndpoint),
                           nullptr);
    RpcServerRegisterIf(served.handle(), nullptr, nullptr);
    return static_cast<int>(RpcServerListen(1, 1, FALSE));
  }
  unsigned exitCode = 0;
  unsigned long sleepMs = 0;
  if (std::sscanf(order.data(), "%u %lu", &exitCode, &sleepMs) == 2) Sleep(sleepMs);
  std::ofstream(std::getenv("ZARN_HELPER_RECORD")) << GetCommandLineA();
  ExitProcess(exitCode);
}
