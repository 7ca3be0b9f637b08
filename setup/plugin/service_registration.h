// The service as the service control manager knows it.
#pragma once

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "os/handles_win.h"
#include "plugin/options.h"
#include "plugin/service_environment.h"

namespace zarn::setup {

/// What setup decides about the service.
struct ServiceSettings {
  std::wstring program;     // full path, unquoted
  std::wstring tempFolder;  // the service's TMP and TEMP
  std::optional<StartType> start;
  std::optional<std::wstring> accountHost;
};

/// Every operation throws SetupError.
class ServiceRegistration {
 public:
  ServiceRegistration();

  [[nodiscard]] bool exists() const noexcept { return service_.isValid(); }
  /// Running, or on its way there.
  [[nodiscard]] bool isRunning() const;
  [[nodiscard]] bool startsAutomatically() const;

  /// Ends the service and waits until its process is gone. A service that is
  /// installing an update is left alone until it has done so; when it is not done
  /// within `limit`, it has not been asked to stop, and the exit code is Busy.
  void stop(std::chrono::seconds limit) const;

  /// Starts the service, if it does not run, and waits until it does (NotStarted).
  /// One that is just stopping is given time to end first.
  void start() const;

  /// Registers the service or renews its registration.
  void apply(const ServiceSettings& settings);

  /// Puts the registration back to what it was before apply(), as far as that came.
  void undo() noexcept;

  /// Stops the service, within `limit`, and removes its registration.
  void remove(std::chrono::seconds limit);

 private:
  struct Configuration {
    std::wstring commandLine;
    std::wstring account;
    DWORD startType = SERVICE_NO_CHANGE;
    Environment environment;
    /// Description and restarts, by their level, as the system gives and takes them.
    std::vector<std::pair<DWORD, std::vector<std::uint64_t>>> more;
  };

  [[nodiscard]] SERVICE_STATUS_PROCESS status() const;
  [[nodiscard]] std::optional<Configuration> configuration() const;
  [[nodiscard]] bool isInstalling() const;
  void create(const ServiceSettings& settings);
  void change(const ServiceSettings& settings) const;
  void describe() const;
  void restartWhenEnded() const;
  void restore(Configuration& before) const noexcept;

  /// What apply() found, which may be nothing.
  std::optional<Configuration> before_;
  bool applied_ = false;
  ServiceHandle manager_;
  ServiceHandle service_;
};

}  // namespace zarn::setup
