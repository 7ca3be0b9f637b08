#include "client/service_call.h"

#include <windows.h>

#include <rpc.h>

#include "os/handles.h"
#include "os/system_error.h"
#include "update/interface/update_interface.h"
#include "util/structured_exception.h"

// The system's word on which exceptions are the process's own faults (an access
// violation, say); in the import library but in no header.
extern "C" int RPC_ENTRY RpcExceptionFilter(unsigned long code);

namespace zarn::client {
namespace {

using update_interface::kClientStub;
using update_interface::Procedure;
using update_interface::procedureFormat;
using update_interface::rpcText;

struct BindingTraits {
  using Handle = RPC_BINDING_HANDLE;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { RpcBindingFree(&handle); }
};
using Binding = ScopedHandle<BindingTraits>;

struct RpcTextTraits {
  using Handle = RPC_WSTR;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle text) noexcept { RpcStringFreeW(&text); }
};
using RpcText = ScopedHandle<RpcTextTraits>;

/// Sorts the runtime's codes by what a caller can do about them. What is not listed may
/// mean anything, also that the service did its work.
Reply failed(RPC_STATUS status) noexcept {
  const auto code = static_cast<std::uint32_t>(status);
  switch (status) {
    case RPC_S_SERVER_UNAVAILABLE:
    case RPC_S_NOT_LISTENING:
    case RPC_S_UNKNOWN_IF:
    case EPT_S_NOT_REGISTERED:
    case RPC_S_CALL_FAILED_DNE:  // "did not execute"
      return {Ending::NotRunning, code};
    case RPC_S_ACCESS_DENIED:
    case RPC_S_SEC_PKG_ERROR:  // the server is not who was asked for
      return {Ending::Refused, code};
    case RPC_S_CALL_FAILED:
      return {Ending::Interrupted, code};
    default:
      return {Ending::Other, code};
  }
}

/// Sealed messages from nobody but the system: while the service is away any program
/// may serve its endpoint. Only because no other can answer may the server act in the
/// caller's name, which the service does to open what the caller may open.
RPC_STATUS askForSystem(RPC_BINDING_HANDLE binding) noexcept {
  // Lives as long as every binding; nothing says that the runtime copies it.
  static SID system{SID_REVISION, 1, {SECURITY_NT_AUTHORITY}, {SECURITY_LOCAL_SYSTEM_RID}};
  RPC_SECURITY_QOS_V3_W quality{};
  quality.Version = RPC_C_SECURITY_QOS_VERSION_3;
  quality.Capabilities = RPC_C_QOS_CAPABILITIES_MUTUAL_AUTH;
  quality.IdentityTracking = RPC_C_QOS_IDENTITY_STATIC;
  quality.ImpersonationType = RPC_C_IMP_LEVEL_IMPERSONATE;
  quality.Sid = &system;
  // The structure's version tells the runtime which of its kind this is.
  const RPC_STATUS status =
      RpcBindingSetAuthInfoExW(binding, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY, RPC_C_AUTHN_WINNT, nullptr,
                               RPC_C_AUTHZ_NONE, reinterpret_cast<RPC_SECURITY_QOS*>(&quality));
  // Every Windows has the provider; a system without it carries local calls all the same.
  return status == RPC_S_UNKNOWN_AUTHN_SERVICE ? RPC_S_OK : status;
}

RPC_STATUS bind(Binding& binding) noexcept {
  RpcText text;
  RPC_STATUS status = RpcStringBindingComposeW(nullptr, rpcText(update_interface::kProtocolSequence), nullptr,
                                               rpcText(update_interface::kEndpoint), nullptr, text.receive());
  if (status != RPC_S_OK) return status;
  status = RpcBindingFromStringBindingW(text.get(), binding.receive());
  return status == RPC_S_OK ? askForSystem(binding.get()) : status;
}

/// The RPC runtime reports a failed call by a structured exception, and raises a fault of
/// the server again in the client, with the server's code: any code can be one. What
/// passes on is the system's list of faults that no program should live through, also one
/// that a server's answer names: the two cannot be told apart by the code.
bool mayComeFromServer(std::uint32_t code) {
  return RpcExceptionFilter(code) != EXCEPTION_CONTINUE_SEARCH;
}

/// One call's arguments and answers; plain data, since a failed call leaves its
/// frames without running destructors.
struct Call {
  RPC_BINDING_HANDLE binding;
  const wchar_t* path;
  long status;
  long exitCode;
};

void callSetLocalAppDataPath(void* context) {
  const auto* const call = static_cast<Call*>(context);
  NdrClientCall2(&kClientStub, procedureFormat(Procedure::SetLocalAppDataPath), call->binding, call->path);
}

void callCheckBundle(void* context) {
  auto* const call = static_cast<Call*>(context);
  call->status = static_cast<long>(
      NdrClientCall2(&kClientStub, procedureFormat(Procedure::CheckBundle), call->binding, call->path)
          .Simple);
}

void callInstall(void* context) {
  auto* const call = static_cast<Call*>(context);
  call->status = static_cast<long>(NdrClientCall2(&kClientStub, procedureFormat(Procedure::Install),
                                                  call->binding, call->path, &call->exitCode)
                                       .Simple);
}

}  // namespace

Reply callService(Request request, const std::wstring& path) noexcept {
  Binding binding;
  if (const RPC_STATUS status = bind(binding); status != RPC_S_OK) return failed(status);
  if (request == Request::Probe) {
    // The runtime of the other side answers, not one of its procedures.
    const RPC_STATUS status = RpcMgmtIsServerListening(binding.get());
    return status == RPC_S_OK ? Reply{Ending::Answered, 0, 0, 0} : failed(status);
  }
  Call call{binding.get(), path.c_str(), 0, 0};
  void (*const routine)(void*) = request == Request::Install ? callInstall
                                 : request == Request::Check ? callCheckBundle
                                                             : callSetLocalAppDataPath;
  const std::uint32_t raised = callCatching(routine, &call, mayComeFromServer);
  if (raised != 0) return failed(static_cast<RPC_STATUS>(raised));
  return {Ending::Answered, 0, std::int32_t{call.status}, std::int32_t{call.exitCode}};
}

}  // namespace zarn::client
