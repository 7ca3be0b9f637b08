#include "update/rpc_server.h"

#include <windows.h>

#include <string>

#include "service/end_process.h"
#include "update/interface/update_interface.h"
#include "update/rpc_answer.h"
#include "update/rpc_caller_win.h"
#include "update/status.h"
#include "update/update_service.h"
#include "util/structured_exception.h"

namespace zarn::rpc_server {
namespace {

constexpr unsigned kEndpointCalls = 10;
constexpr unsigned kMaximumCalls = 1234;
constexpr unsigned kMinimumThreads = 1;
constexpr unsigned kReturnAfterStop = 0;  // RpcServerListen blocks
static_assert((RPC_IF_ALLOW_SECURE_ONLY | RPC_IF_ALLOW_LOCAL_ONLY) == 0x28);

/// The RPC runtime would answer the caller of a call that faults and go on, with every
/// lock that the call held still locked. A process that ended is started anew.
bool endOnFault(std::uint32_t code) {
  endProcessAfterFault(code);
}

/// Runs the work of a call on the runtime's thread.
template <typename Work>
Status answer(const char* procedure, const wchar_t* path, Status fallback, const Work& work) {
  Status status = fallback;
  static_cast<void>(callCatching([&] { status = answerCall(procedure, path, fallback, work); }, endOnFault));
  return status;
}

void takeSetLocalAppDataPath(handle_t, const wchar_t* path) {
  // Without an answer on the wire the status is nobody's.
  static_cast<void>(answer("SetLocalAppDataPath", path, Status::Failed, [](const std::wstring& text) {
    UpdateService::instance().setLocalAppDataPath(currentRequester(), text);
    return Status::Installed;
  }));
}

long takeCheckBundle(handle_t, const wchar_t* bundlePath) {
  const Status status =
      answer("CheckBundle", bundlePath, Status::SignatureRefused, [](const std::wstring& path) {
        return UpdateService::instance().CheckBundle(currentRequester(), path);
      });
  return static_cast<long>(status);
}

long takeInstall(handle_t, const wchar_t* bundlePath, long* installerExitCode) {
  std::int32_t exitCode = 0;  // what a caller sees of an install that ran nothing
  const Status status = answer("Install", bundlePath, Status::Failed, [&exitCode](const std::wstring& path) {
    return UpdateService::instance().Install(currentRequester(), path, exitCode);
  });
  *installerExitCode = exitCode;
  return static_cast<long>(status);
}

update_interface::ServerInterface& serverInterface() {
  static update_interface::ServerInterface theInterface(
      {takeSetLocalAppDataPath, takeCheckBundle, takeInstall});
  return theInterface;
}

}  // namespace

std::uint32_t openEndpoint() {
  using update_interface::rpcText;
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
