#include "update/rpc_server.h"

#include <windows.h>

#include <cwchar>
#include <string>

#include "update/app_data_request.h"
#include "update/interface/update_interface.h"
#include "update/status.h"
#include "update/update_service.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/type_name.h"

namespace zarn::rpc_server {
namespace {

constexpr unsigned kEndpointCalls = 10;
constexpr unsigned kMaximumCalls = 1234;
constexpr unsigned kMinimumThreads = 1;
constexpr unsigned kReturnAfterStop = 0;  // RpcServerListen blocks
static_assert((RPC_IF_ALLOW_SECURE_ONLY | RPC_IF_ALLOW_LOCAL_ONLY) == 0x28);

/// The RPC calls lack const where they only read.
RPC_WSTR rpcText(const wchar_t* text) noexcept {
  return reinterpret_cast<RPC_WSTR>(const_cast<wchar_t*>(text));
}

bool isAcceptablePath(const wchar_t* path, const char* procedure) {
  if (path != nullptr && wcsnlen(path, kMaximumPathUnits + 1) <= kMaximumPathUnits) return true;
  logLine(LogLevel::Error, "%s: the path is missing or too long.", std::string_view(procedure));
  return false;
}

void logEscaped(const char* procedure, const std::exception* error) noexcept {
  try {
    logLine(LogLevel::Error, "%s: Caught std::exception %s, type: %s", std::string_view(procedure),
            printable(error != nullptr ? error->what() : "unknown"),
            error != nullptr ? typeName(*error) : std::string("unknown"));
  } catch (...) {  // NOLINT(bugprone-empty-catch): there is no way left to say it
  }
}

/// Runs `work`, which answers a status. Nothing thrown may enter the RPC runtime,
/// which would end the process: it becomes a log line and `fallback`.
template <typename Work>
long answer(const char* procedure, Status fallback, const wchar_t* path, const Work& work) noexcept {
  Status status = fallback;
  try {
    if (isAcceptablePath(path, procedure)) status = work(std::wstring(path));
  } catch (const std::exception& error) {
    logEscaped(procedure, &error);
  } catch (...) {
    logEscaped(procedure, nullptr);
  }
  return static_cast<long>(status);
}

void takeSetLocalAppDataPath(handle_t, const wchar_t* path) {
  answer("SetLocalAppDataPath", Status::Failed, path, [](const std::wstring& text) {
    setLocalAppDataPath(text);
    return Status::Installed;
  });
}

long takeCheckBundle(handle_t, const wchar_t* bundlePath) {
  return answer("CheckBundle", Status::SignatureRefused, bundlePath,
                [](const std::wstring& path) { return UpdateService::instance().CheckBundle(path); });
}

long takeInstall(handle_t, const wchar_t* bundlePath, long* installerExitCode) {
  return answer("Install", Status::Failed, bundlePath, [installerExitCode](const std::wstring& path) {
    std::int32_t exitCode = static_cast<std::int32_t>(*installerExitCode);
    const Status status = UpdateService::instance().Install(path, exitCode);
    *installerExitCode = exitCode;
    return status;
  });
}

update_interface::ServerInterface& serverInterface() {
  static update_interface::ServerInterface theInterface(
      {takeSetLocalAppDataPath, takeCheckBundle, takeInstall});
  return theInterface;
}

}  // namespace

std::uint32_t openEndpoint() {
  return static_cast<std::uint32_t>(RpcServerUseProtseqEpW(rpcText(update_interface::kProtocolSequence),
                                                           kEndpointCalls,
                                                           rpcText(update_interface::kEndpoint), nullptr));
}

std::uint32_t registerInterface() {
  return static_cast<std::uint32_t>(RpcServerRegisterIfEx(serverInterface().handle(), nullptr, nullptr,
                                                          RPC_IF_ALLOW_SECURE_ONLY | RPC_IF_ALLOW_LOCAL_ONLY,
                                                          kMaximumCalls, nullptr));
}

std::uint32_t listen() {
  return static_cast<std::uint32_t>(RpcServerListen(kMinimumThreads, kMaximumCalls, kReturnAfterStop));
}

std::uint32_t stopListening() {
  return static_cast<std::uint32_t>(RpcMgmtStopServerListening(nullptr));
}

}  // namespace zarn::rpc_server
