// What the service control manager knows about the update service, in words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/tool/report/answer.h"
#include "client/tool/report/authorities.h"
#include "client/tool/report/history.h"
#include "client/tool/report/settings.h"
#include "os/system_error.h"
#include "update/install_record.h"

namespace zarn::tool {

/// What the service control manager does each time the service fails.
struct Recovery {
  struct Step {
    std::string action;  ///< "restart", "reboot", "program" or "nothing"
    std::uint32_t delayMilliseconds = 0;
  };
  static constexpr std::uint32_t kNever = 0xFFFFFFFF;

  std::vector<Step> steps;  ///< for the first failure and so on; the last for all that follow
  /// After so long without one the next failure counts as the first.
  std::uint32_t resetSeconds = kNever;
};

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
  /// "auto", "delayed-auto", "demand" or "disabled", as the package's START; empty when not
  /// to be had, or when it is none of them.
  std::string start{};
  std::optional<Recovery> recovery{};
};

/// "restart after 1 s, 5 s, 60 s; the count begins anew after a day".
[[nodiscard]] std::string recoveryInWords(const std::optional<Recovery>& recovery);

/// Whether the service control manager has no such service, which is one of the errors
/// for which there are no facts.
[[nodiscard]] bool isNotInstalled(SystemError error) noexcept;

/// The path inside a service's command line, quoted or not; UTF-8.
[[nodiscard]] std::string programOfCommandLine(const std::string& commandLine);

/// The version in the banner at the beginning of a log file; nothing when there is none.
[[nodiscard]] std::optional<std::string> versionOfBanner(std::string_view head);

/// All that `status` shows.
struct ServiceReport {
  Result<ServiceFacts> service;
  /// Product version of the service's program on the disk; empty when it is not known.
  std::string version;
  std::string logFolder;
  bool logFolderExists = false;
  Result<History> history;
  /// As the next start would find them, but for those that are read for every request.
  std::vector<Setting> settings{};
  /// Since the service started, so that what it works with may be something else.
  std::optional<bool> settingsChanged{};
  /// Of the process that runs, by its log.
  std::optional<std::string> runningVersion{};
  Result<std::optional<InstallUnderWay>> installing{};
  AuthorityList authorities{};
  /// Nothing: not known. Empty: none is set.
  std::optional<std::string> tempFolder{};
  std::string recordFolder{};
  /// Where logs lie that the service wrote before its log was moved.
  std::vector<std::string> earlierLogs{};
};
[[nodiscard]] Answer statusAnswer(const ServiceReport& report);

}  // namespace zarn::tool
