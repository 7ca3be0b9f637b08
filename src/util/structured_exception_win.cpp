#include "util/structured_exception.h"

#include <windows.h>

#include <cstring>

#include "os/system_error.h"

// g++ has no __try; the assembler can still give a function a scope table, which
// is all that __try compiles to on x86-64. In zarnCallCatching the slots above the
// callee's shadow space hold the status, at 32(%rsp), which is 0 until the filter
// has accepted an exception and written its code there, and the caller's filter,
// at 40(%rsp). %rsp after the prologue is what the filter receives as the frame.
asm(R"(
	.text
	.globl	zarnCallCatching
	.def	zarnCallCatching; .scl 2; .type 32; .endef
	.seh_proc	zarnCallCatching
zarnCallCatching:
	subq	$56, %rsp
	.seh_stackalloc	56
	.seh_endprologue
	movq	$0, 32(%rsp)
	movq	%r8, 40(%rsp)
	movq	%rcx, %rax
	movq	%rdx, %rcx
.LguardedBegin:
	call	*%rax
	nop
.LguardedEnd:
	movl	32(%rsp), %eax
	addq	$56, %rsp
	ret
	.seh_handler	__C_specific_handler, @except
	.seh_handlerdata
	.long	1
	.rva	.LguardedBegin, .LguardedEnd, zarnFilterException, .LguardedEnd
	.text
	.seh_endproc
)");

namespace {

constexpr std::size_t kStatusOffset = 32;
constexpr std::size_t kFilterOffset = 40;

/// 0x20474343 and its kin, which belong to a catch or are on their way to one.
bool isCompilers(DWORD code) noexcept {
  constexpr DWORD mask = 0xF0FFFFFF;
  constexpr DWORD compilers = 0x20474343;
  return (code & mask) == compilers;
}

}  // namespace

extern "C" {
std::uint32_t zarnCallCatching(void (*routine)(void*), void* context, zarn::ExceptionFilter filter);
long zarnFilterException(EXCEPTION_POINTERS* exception, void* frame);
}

long zarnFilterException(EXCEPTION_POINTERS* exception, void* frame) {
  char* const slots = static_cast<char*>(frame);
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  zarn::ExceptionFilter filter = nullptr;
  std::memcpy(&filter, slots + kFilterOffset, sizeof(filter));
  if (isCompilers(code) || !filter(code)) return EXCEPTION_CONTINUE_SEARCH;
  const DWORD status = zarn::failureCode(code);
  std::memcpy(slots + kStatusOffset, &status, sizeof(status));
  return EXCEPTION_EXECUTE_HANDLER;
}

namespace zarn {

std::uint32_t callCatching(void (*routine)(void*), void* context, ExceptionFilter filter) {
  return zarnCallCatching(routine, context, filter);
}

}  // namespace zarn
