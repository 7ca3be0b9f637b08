// What the service control manager knows about the update service, in words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/tool/report/answer.h"
#include "client/tool/report/history.h"
#include "client/tool/report/settings.h"
#include "os/system_error.h"

namespace zarn::tool {

struct ServiceFacts {
  /// "running", "stopped" and so on, as people say it.
  std::string state;
  bool running = false;
  std::uint32_t processId = 0;
  /// Win32 error that the service reported with its last stop.
  std::uint32_t exitCode = 0;
  /// Full path of the program, and the account it runs as; empty when not to be had.
  std::string program;
  std::string account;
};

/// Whether the service control manager has no such service, which is one of the errors
/// for which there are no facts.
[[nodiscard]] bool isNotInstalled(SystemError error) noexcept;

/// The path inside a service's command line, quoted or not; UTF-8.
[[nodiscard]] std::string programOfCommandLine(const std::string& commandLine);

/// All that `status` shows.
struct ServiceReport {
  Result<ServiceFacts> service;
  /// Product version of the service's program; empty when it is not known.
  std::string version;
  std::string logFolder;
  bool logFolderExists = false;
  Result<History> history;
  /// As the next start would find them, but for those that are read for every request.
  std::vector<Setting> settings{};
  /// Since the service started, so that what it works with may be something else.
  std::optional<bool> settingsChanged{};
};
[[nodiscard]] Answer statusAnswer(const ServiceReport& report);

}  // namespace zarn::tool
