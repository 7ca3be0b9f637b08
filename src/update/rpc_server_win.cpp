#include "update/rpc_server.h"

#include <windows.h>

#include <memory>
#include <string>
#include <utility>

#include "os/handles_win.h"
#include "os/identity_win.h"
#include "service/end_process.h"
#include "update/impersonation_win.h"
#include "update/interface/update_interface.h"
#include "util/string_utils.h"
#include "util/structured_exception.h"

namespace zarn::rpc_server {
namespace {

constexpr unsigned kEndpointCalls = 10;
constexpr unsigned kMaximumCalls = 1234;
constexpr unsigned kMinimumThreads = 1;
constexpr unsigned kReturnAfterStop = 0;  // RpcServerListen blocks
static_assert((RPC_IF_ALLOW_SECURE_ONLY | RPC_IF_ALLOW_LOCAL_ONLY) == 0x28);

/// Where the calls' work is done. Set before the interface is registered, so that every
/// routine below finds it.
ServedCalls* served = nullptr;

std::string imageOf(HANDLE process) {
  constexpr DWORD longest = 32'768;
  std::wstring path(longest, L'\0');
  DWORD length = longest;
  if (QueryFullProcessImageNameW(process, 0, path.data(), &length) == 0) return {};
  path.resize(length);
  return StringUtils::utf16to8(path);
}

/// Who made the call that this thread serves. What the system does not tell stays empty.
Requester currentRequester() {
  Requester requester;
  {
    const Impersonation caller;
    requester.caller.sid = userOf(caller.token());
  }
  unsigned long processId = 0;
  if (I_RpcBindingInqLocalClientPID(nullptr, &processId) != RPC_S_OK || processId == 0) return requester;
  requester.caller.processId = processId;
  KernelHandle opened(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, processId));
  if (!opened) return requester;
  // The handle stays open as long as somebody asks, so that the number is not given to
  // another process meanwhile.
  const auto process = std::make_shared<KernelHandle>(std::move(opened));
  requester.caller.image = imageOf(process->get());
  requester.isGone = [process] { return WaitForSingleObject(process->get(), 0) == WAIT_OBJECT_0; };
  return requester;
}

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
  // The procedure has no answer on the wire, so that its status goes nowhere.
  static_cast<void>(answer("SetLocalAppDataPath", path, Status::Failed, [](const std::wstring& text) {
    served->setLocalAppDataPath(currentRequester(), text);
    return Status::Installed;
  }));
}

long takeCheckBundle(handle_t, const wchar_t* bundlePath) {
  const Status status =
      answer("CheckBundle", bundlePath, Status::SignatureRefused,
             [](const std::wstring& path) { return served->CheckBundle(currentRequester(), path); });
  return static_cast<long>(status);
}

long takeInstall(handle_t, const wchar_t* bundlePath, long* installerExitCode) {
  std::int32_t exitCode = 0;  // what a caller sees of an install that ran nothing
  const Status status = answer("Install", bundlePath, Status::Failed, [&exitCode](const std::wstring& path) {
    return served->Install(currentRequester(), path, exitCode);
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

std::uint32_t registerInterface(ServedCalls& calls) {
  served = &calls;
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
