// Told by the environment variable ZARN_HELPER what to do:
//   "N MS"         sleeps MS milliseconds and ends with exit code N
//   "serve NAME"   serves UpdateInterface at this endpoint and dies in the first call
// and writes its command line to the file that ZARN_HELPER_RECORD names.
#include <windows.h>

#include <cstdio>
#include <string>

#include "update/interface/update_interface.h"

namespace {

std::wstring variable(const wchar_t* name) {
  wchar_t text[1024] = {};
  GetEnvironmentVariableW(name, text, 1024);
  return text;
}

void die(handle_t, const wchar_t*) {
  TerminateProcess(GetCurrentProcess(), 1);
}
long dieChecking(handle_t, const wchar_t*) {
  return TerminateProcess(GetCurrentProcess(), 1);
}
long dieInstalling(handle_t, const wchar_t*, long*) {
  return TerminateProcess(GetCurrentProcess(), 1);
}

int serve(std::wstring endpoint) {
  zarn::update_interface::ServerInterface theInterface({die, dieChecking, dieInstalling});
  std::wstring sequence = zarn::update_interface::kProtocolSequence;
  if (RpcServerUseProtseqEpW(reinterpret_cast<RPC_WSTR>(sequence.data()), 1,
                             reinterpret_cast<RPC_WSTR>(endpoint.data()), nullptr) != RPC_S_OK) {
    return 2;
  }
  if (RpcServerRegisterIf(theInterface.handle(), nullptr, nullptr) != RPC_S_OK) return 3;
  return static_cast<int>(RpcServerListen(1, 1, FALSE));
}

}  // namespace

int wmain() {
  const std::wstring order = variable(L"ZARN_HELPER");
  if (order.rfind(L"serve ", 0) == 0) return serve(order.substr(6));
  if (std::FILE* const record = _wfopen(variable(L"ZARN_HELPER_RECORD").c_str(), L"w")) {
    std::fprintf(record, "%ls", GetCommandLineW());
    std::fclose(record);
  }
  unsigned exitCode = 0;
  unsigned long sleepMs = 0;
  if (std::swscanf(order.c_str(), L"%u %lu", &exitCode, &sleepMs) >= 1) Sleep(sleepMs);
  ExitProcess(exitCode);
}
