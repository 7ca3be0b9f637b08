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

namespace {

[[noreturn]] void die() {
  TerminateProcess(GetCurrentProcess(), 1);
  std::abort();
}

int serve() {
  namespace wire = zarn::update_interface;
  wire::ServerInterface served({[](handle_t, const wchar_t*) { die(); },
                                [](handle_t, const wchar_t*) -> long { die(); },
                                [](handle_t, const wchar_t*, long*) -> long { die(); }});
  RpcServerUseProtseqEpW(wire::rpcText(wire::kProtocolSequence), 1, wire::rpcText(wire::kEndpoint), nullptr);
  RpcServerRegisterIf(served.handle(), nullptr, nullptr);
  return static_cast<int>(RpcServerListen(1, 1, FALSE));
}

}  // namespace

int main() {
  const char* const order = std::getenv("ZARN_HELPER");
  if (order == nullptr) return 1;
  if (std::string_view(order) == "serve") return serve();
  unsigned exitCode = 0;
  unsigned long sleepMs = 0;
  if (std::sscanf(order, "%u %lu", &exitCode, &sleepMs) == 2) Sleep(sleepMs);
  std::ofstream(std::getenv("ZARN_HELPER_RECORD")) << GetCommandLineA();
  ExitProcess(exitCode);
}
