// Waits until the running service's process ends and tells its exit code, for the demo.
#include <windows.h>

#include <cstdio>

#include "os/handles_win.h"

namespace {

int fail(const char* what) {
  std::fprintf(stderr, "%s failed: %lu\n", what, GetLastError());
  return 1;
}

}  // namespace

int main() {
  const zarn::ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) return fail("OpenSCManagerW");
  const zarn::ServiceHandle service(OpenServiceW(manager.get(), L"ZarnUpdateService", SERVICE_QUERY_STATUS));
  if (!service) return fail("OpenServiceW");
  SERVICE_STATUS_PROCESS status{};
  DWORD needed = 0;
  if (QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof(status), &needed) == 0) {
    return fail("QueryServiceStatusEx");
  }
  const zarn::KernelHandle process(
      OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, status.dwProcessId));
  if (!process) return fail("OpenProcess");
  std::puts("waiting");
  std::fflush(stdout);
  DWORD exitCode = STILL_ACTIVE;
  WaitForSingleObject(process.get(), INFINITE);
  if (GetExitCodeProcess(process.get(), &exitCode) == 0) return fail("GetExitCodeProcess");
  std::printf("ZarnUpdateService.exe ended with exit code %lu\n", exitCode);
  return 0;
}
