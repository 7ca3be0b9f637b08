// A service that does nothing: what any service costs. With an argument it asks for
// the user's application-data folder first, as every service must that logs there.
#include <windows.h>

#include <shlobj.h>

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

/// The library is loaded here, so that the service without the argument has no part of it.
void findApplicationData() {
  using Find = decltype(&SHGetSpecialFolderPathW);
  const HMODULE shell = LoadLibraryW(L"shell32.dll");
  const auto find =
      reinterpret_cast<Find>(reinterpret_cast<void*>(GetProcAddress(shell, "SHGetSpecialFolderPathW")));
  wchar_t folder[MAX_PATH] = {};
  if (find(nullptr, folder, CSIDL_LOCAL_APPDATA, TRUE) == 0) ExitProcess(1);
}

}  // namespace

int main(int count, char** /*arguments*/) {
  if (count > 1) findApplicationData();
  stopped = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  wchar_t name[] = L"ZarnNullService";
  const SERVICE_TABLE_ENTRYW table[] = {{name, serviceMain}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) != 0 ? 0 : 1;
}
