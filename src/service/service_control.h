// The three calls to the service control manager, which can fail but not be made
// to fail for a test.
#pragma once

#include <windows.h>

namespace zarn {

class ServiceControl {
 public:
  /// As the Windows calls of the same name: a failure leaves the last error set.
  virtual bool startDispatcher(const SERVICE_TABLE_ENTRYW* services) = 0;
  virtual SERVICE_STATUS_HANDLE registerHandler(const wchar_t* name, LPHANDLER_FUNCTION_EX handler) = 0;
  virtual bool setStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS& status) = 0;

  /// The one in use: Windows' own unless a test has put another in its place.
  [[nodiscard]] static ServiceControl& current() noexcept;

  /// Takes `control` (null: Windows' own) from here on. It must outlive its use.
  static void use(ServiceControl* control) noexcept;

 protected:
  ~ServiceControl() = default;
};

}  // namespace zarn
