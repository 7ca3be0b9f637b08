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

Interruption::Interruption(const char* sentence) noexcept : former_(currentSentence.exchange(sentence)) {
  if (former_ == nullptr) SetConsoleCtrlHandler(interrupted, TRUE);
}

Interruption::~Interruption() {
  currentSentence.store(former_);
  if (former_ == nullptr) SetConsoleCtrlHandler(interrupted, FALSE);
}

}  // namespace zarn::tool
