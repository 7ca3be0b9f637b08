/* install_by_idl BUNDLE: an install without the client library, for who generates stubs from the
   IDL. Ends with 0 when there is an answer, 1 when nothing was done, 2 when nobody knows. */
#include <windows.h>

#include <rpc.h>
#include <stdio.h>
#include <stdlib.h>

#include "update_interface.h" /* made of the IDL, like update_interface_c.c */

void* __RPC_USER MIDL_user_allocate(SIZE_T size) {
  return malloc(size);
}
void __RPC_USER MIDL_user_free(void* memory) {
  free(memory);
}

/* Sealed messages, and from nobody but the system: while the service is away any program may serve
   its endpoint. Only so may the other side act in the caller's name, to open the bundle. */
static RPC_STATUS ask_for_system(handle_t binding) {
  static SID system = {SID_REVISION, 1, {SECURITY_NT_AUTHORITY}, {SECURITY_LOCAL_SYSTEM_RID}};
  RPC_SECURITY_QOS_V3_W quality = {RPC_C_SECURITY_QOS_VERSION_3, RPC_C_QOS_CAPABILITIES_MUTUAL_AUTH};
  RPC_STATUS status;
  quality.ImpersonationType = RPC_C_IMP_LEVEL_IMPERSONATE;
  quality.Sid = &system;
  status = RpcBindingSetAuthInfoExW(binding, NULL, RPC_C_AUTHN_LEVEL_PKT_PRIVACY, RPC_C_AUTHN_WINNT, NULL,
                                    RPC_C_AUTHZ_NONE, (RPC_SECURITY_QOS*)&quality);
  return status == RPC_S_UNKNOWN_AUTHN_SERVICE ? RPC_S_OK : status; /* Wine; every Windows has it */
}

/* The process's own faults pass on; the code is kept, since not every system tells it later. */
static int is_for_us(unsigned long code, RPC_STATUS* kept) {
  *kept = (RPC_STATUS)code;
  return RpcExceptionFilter(code);
}

static int was_not_done(RPC_STATUS status) {
  return status == RPC_S_SERVER_UNAVAILABLE || status == RPC_S_NOT_LISTENING || status == RPC_S_UNKNOWN_IF ||
         status == EPT_S_NOT_REGISTERED || status == RPC_S_CALL_FAILED_DNE || /* nobody is there */
         status == RPC_S_ACCESS_DENIED || status == RPC_S_SEC_PKG_ERROR;      /* refused, or not the system */
}

int wmain(int count, wchar_t** arguments) {
  RPC_WSTR text = NULL;
  handle_t binding = NULL;
  RPC_STATUS status;
  long exit_code = 0, answer = 0;
  status = RpcStringBindingComposeW(NULL, (RPC_WSTR)L"ncalrpc", NULL, (RPC_WSTR)L"UpdateServiceEndpoint",
                                    NULL, &text);
  if (status == RPC_S_OK) status = RpcBindingFromStringBindingW(text, &binding);
  if (status == RPC_S_OK) status = ask_for_system(binding);
  if (status != RPC_S_OK || count != 2) return 1;
  RpcTryExcept {
    answer = Install(binding, arguments[1], &exit_code);
  }
  RpcExcept(is_for_us(RpcExceptionCode(), &status)) {
    printf("no answer: RPC status %ld\n", (long)status);
    return was_not_done(status) ? 1 : 2; /* 1726, RPC_S_CALL_FAILED, and all others: the outcome is unknown */
  }
  RpcEndExcept printf("status %ld, installer's exit code %ld\n", answer, exit_code);
  return 0;
}
