#include "client/tool/service_query_win.h"

#include <windows.h>

#include <array>
#include <cstddef>
#include <vector>

#include "os/handles_win.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

std::string stateName(DWORD state) {
  switch (state) {
    case SERVICE_STOPPED:
      return "stopped";
    case SERVICE_START_PENDING:
      return "starting";
    case SERVICE_STOP_PENDING:
      return "stopping";
    case SERVICE_RUNNING:
      return "running";
    case SERVICE_CONTINUE_PENDING:
    case SERVICE_PAUSE_PENDING:
    case SERVICE_PAUSED:
      return "paused";
    default:
      return "in state " + std::to_string(state);
  }
}

void readConfiguration(SC_HANDLE service, ServiceFacts& facts) {
  DWORD size = 0;
  QueryServiceConfigW(service, nullptr, 0, &size);
  if (size < sizeof(QUERY_SERVICE_CONFIGW)) return;
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  if (QueryServiceConfigW(service, config, size, &size) == 0) return;
  if (config->lpBinaryPathName != nullptr) {
    facts.program = programOfCommandLine(StringUtils::utf16to8(config->lpBinaryPathName));
  }
  if (config->lpServiceStartName != nullptr)
    facts.account = StringUtils::utf16to8(config->lpServiceStartName);
}

}  // namespace

ServiceQuery queryService() {
  const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) return {std::nullopt, failureCode(lastSystemError())};
  const ServiceHandle service(
      OpenServiceW(manager.get(), names::kService.wide, SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG));
  if (!service) return {std::nullopt, failureCode(lastSystemError())};
  SERVICE_STATUS_PROCESS status{};
  DWORD size = 0;
  if (QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof(status), &size) == 0) {
    return {std::nullopt, failureCode(lastSystemError())};
  }
  ServiceFacts facts;
  facts.state = stateName(status.dwCurrentState);
  facts.running = status.dwCurrentState == SERVICE_RUNNING;
  facts.processId = status.dwProcessId;
  facts.exitCode = status.dwWin32ExitCode;
  readConfiguration(service.get(), facts);
  return {facts, 0};
}

std::string programOfCommandLine(const std::string& commandLine) {
  if (commandLine.starts_with('"')) return commandLine.substr(1, commandLine.find('"', 1) - 1);
  const std::size_t end = commandLine.find(".exe");
  return end == std::string::npos ? commandLine : commandLine.substr(0, end + 4);
}

}  // namespace zarn::tool
