// What the service control manager knows about the update service.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

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

struct ServiceQuery {
  /// Nothing when the service control manager gave no answer.
  std::optional<ServiceFacts> facts;
  /// Why not: ERROR_SERVICE_DOES_NOT_EXIST (1060) or another Win32 error.
  std::uint32_t error = 0;
};

[[nodiscard]] ServiceQuery queryService();

/// The path inside a service's command line, quoted or not; UTF-8.
[[nodiscard]] std::string programOfCommandLine(const std::string& commandLine);

}  // namespace zarn::tool
