#include "client/guarded_call.h"

#include <windows.h>

#include <rpc.h>

#include <cstring>

#include "util/system_error.h"

// g++ has no __try; the assembler can still give a function a scope table, which
// is all that __try compiles to on x86-64. In zarnCallGuarded the slot at
// 32(%rsp), above the callee's shadow space, holds the status: 0 until the filter
// has accepted an exception and written its code there. %rsp after the prologue
// is what the filter receives as the frame.
asm(R"(
	.text
	.globl	zarnCallGuarded
	.def	zarnCallGuarded; .scl 2; .type 32; .endef
	.seh_proc	zarnCallGuarded
zarnCallGuarded:
	subq	$40, %rsp
	.seh_stackalloc	40
	.seh_endprologue
	movq	$0, 32(%rsp)
	movq	%rcx, %rax
	movq	%rdx, %rcx
.LguardedBegin:
	call	*%rax
	nop
.LguardedEnd:
	movl	32(%rsp), %eax
	addq	$40, %rsp
	ret
	.seh_handler	__C_specific_handler, @except
	.seh_handlerdata
	.long	1
	.rva	.LguardedBegin, .LguardedEnd, zarnRpcExceptionFilter, .LguardedEnd
	.text
	.seh_endproc
)");

extern "C" {
std::uint32_t zarnCallGuarded(void (*routine)(void*), void* context);
long zarnRpcExceptionFilter(EXCEPTION_POINTERS* exception, void* frame);
// The system's word on which exceptions are the process's own faults (an access
// violation, say); in the import library but in no header.
int RPC_ENTRY RpcExceptionFilter(unsigned long code);
}

/// Any code can be an RPC status: the runtime raises a fault of the server again
/// in the client, with the server's code. What passes on is the system's list of
/// faults that no program should live through (an access violation, say, also
/// one that a server's answer names: the two cannot be told apart by the code),
/// and C++ exceptions of g++ (0x20474343 and its kin), which belong to a catch.
long zarnRpcExceptionFilter(EXCEPTION_POINTERS* exception, void* frame) {
  constexpr DWORD compilerMask = 0xF0FFFFFF;
  constexpr DWORD compilerCode = 0x20474343;
  constexpr std::size_t statusOffset = 32;
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  const bool isCompilers = (code & compilerMask) == compilerCode;
  if (isCompilers || RpcExceptionFilter(code) == EXCEPTION_CONTINUE_SEARCH) return EXCEPTION_CONTINUE_SEARCH;
  const DWORD status = zarn::failureCode(code);
  std::memcpy(static_cast<char*>(frame) + statusOffset, &status, sizeof(status));
  return EXCEPTION_EXECUTE_HANDLER;
}

namespace zarn::client {

std::uint32_t callCatchingRpcExceptions(void (*routine)(void*), void* context) {
  return zarnCallGuarded(routine, context);
}

}  // namespace zarn::client
