#include <atomic>

#include "service/service_control.h"

namespace zarn {
namespace {

class WindowsServiceControl final : public ServiceControl {
 public:
  bool startDispatcher(const SERVICE_TABLE_ENTRYW* services) override {
    return StartServiceCtrlDispatcherW(services) != 0;
  }
  SERVICE_STATUS_HANDLE registerHandler(const wchar_t* name, LPHANDLER_FUNCTION_EX handler) override {
    return RegisterServiceCtrlHandlerExW(name, handler, nullptr);
  }
  bool setStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS& status) override {
    return SetServiceStatus(handle, &status) != 0;
  }
};

WindowsServiceControl windowsControl;
std::atomic<ServiceControl*> inUse{&windowsControl};

}  // namespace

ServiceControl& ServiceControl::current() noexcept {
  return *inUse.load();
}

void ServiceControl::use(ServiceControl* control) noexcept {
  inUse.store(control != nullptr ? control : &windowsControl);
}

}  // namespace zarn
