/* Linked into the programs of the coverage build alone, which end at once: has the counters
   written before. The linker hands calls of TerminateProcess to the pointer below. */
#include <windows.h>

void __gcov_dump(void);
extern BOOL(WINAPI* __real___imp_TerminateProcess)(HANDLE process, UINT code);

static BOOL WINAPI end(HANDLE process, UINT code) {
  if (process == GetCurrentProcess()) __gcov_dump();
  return __real___imp_TerminateProcess(process, code);
}

BOOL(WINAPI* __wrap___imp_TerminateProcess)(HANDLE process, UINT code) = end;
