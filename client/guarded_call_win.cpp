#include "client/guarded_call.h"

#include <windows.h>

#include <cstring>

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
}

/// RPC statuses are plain numbers; faults of the processor and exceptions of
/// languages carry severity bits.
long zarnRpcExceptionFilter(EXCEPTION_POINTERS* exception, void* frame) {
  constexpr DWORD severityBits = 0xC0000000;
  constexpr std::size_t statusOffset = 32;
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if (code == 0 || (code & severityBits) != 0) return EXCEPTION_CONTINUE_SEARCH;
  std::memcpy(static_cast<char*>(frame) + statusOffset, &code, sizeof(code));
  return EXCEPTION_EXECUTE_HANDLER;
}

namespace zarn::client {

std::uint32_t callCatchingRpcExceptions(void (*routine)(void*), void* context) noexcept {
  return zarnCallGuarded(routine, context);
}

}  // namespace zarn::client
