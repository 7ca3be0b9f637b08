#include "client/service_process.h"

#include "util/product_names.h"

namespace zarn::client {

zarn::Result<ServiceHandle> openService(DWORD rights) {
  const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) return lastFailure();
  ServiceHandle service(OpenServiceW(manager.get(), names::kService.wide, rights));
  if (!service) return lastFailure();
  return service;
}

zarn::Result<SERVICE_STATUS_PROCESS> queryProcess(const ServiceHandle& service) {
  SERVICE_STATUS_PROCESS status{};
  DWORD size = 0;
  if (QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof(status), &size) == 0) {
    return lastFailure();
  }
  return status;
}

}  // namespace zarn::client
