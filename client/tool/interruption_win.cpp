#include "client/tool/interruption_win.h"

#include <windows.h>

#include <atomic>
#include <string>

#include "client/tool/answer.h"
#include "client/tool/console_win.h"

namespace zarn::tool {
namespace {

std::atomic<const char*> currentSentence{nullptr};

BOOL WINAPI interrupted(DWORD) noexcept {
  const char* const sentence = currentSentence.load();
  if (sentence == nullptr) return FALSE;
  write(Stream::Error, std::string("\nzarn-update: ") + sentence + "\n");
  // The call to the service goes on in another thread, which nothing can end in an orderly way.
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(ExitCode::Interrupted));
  return TRUE;
}

}  // namespace

Interruption::Interruption(const char* sentence) noexcept {
  currentSentence.store(sentence);
  SetConsoleCtrlHandler(interrupted, TRUE);
}

Interruption::~Interruption() {
  SetConsoleCtrlHandler(interrupted, FALSE);
  currentSentence.store(nullptr);
}

}  // namespace zarn::tool
