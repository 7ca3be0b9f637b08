#include "client/guarded_call.h"

#include <windows.h>

#include <rpc.h>

#include "util/structured_exception.h"

// The system's word on which exceptions are the process's own faults (an access
// violation, say); in the import library but in no header.
extern "C" int RPC_ENTRY RpcExceptionFilter(unsigned long code);

namespace zarn::client {
namespace {

/// Any code can be an RPC status: the runtime raises a fault of the server again
/// in the client, with the server's code. What passes on is the system's list of
/// faults that no program should live through, also one that a server's answer
/// names: the two cannot be told apart by the code.
bool mayComeFromServer(std::uint32_t code) {
  return RpcExceptionFilter(code) != EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

std::uint32_t callCatchingRpcExceptions(void (*routine)(void*), void* context) {
  return callCatching(routine, context, mayComeFromServer);
}

}  // namespace zarn::client
