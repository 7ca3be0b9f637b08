// A service that does nothing: what any service costs.
#include <windows.h>

namespace {

constexpr wchar_t kName[] = L"ZarnNullService";

HANDLE stopped = nullptr;
SERVICE_STATUS_HANDLE statusHandle = nullptr;

void reportState(DWORD state) {
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
  SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI control(DWORD code, DWORD /*event*/, void* /*data*/, void* /*context*/) {
  if (code == SERVICE_CONTROL_STOP) SetEvent(stopped);
  return NO_ERROR;
}

void WINAPI serviceMain(DWORD /*count*/, wchar_t** /*arguments*/) {
  statusHandle = RegisterServiceCtrlHandlerExW(kName, control, nullptr);
  reportState(SERVICE_RUNNING);
  WaitForSingleObject(stopped, INFINITE);
  reportState(SERVICE_STOPPED);
}

}  // namespace

int main() {
  stopped = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  wchar_t name[] = L"ZarnNullService";
  const SERVICE_TABLE_ENTRYW table[] = {{name, serviceMain}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) != 0 ? 0 : 1;
}
