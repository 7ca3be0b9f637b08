#include "client/bounded_work.h"

#include <array>
#include <atomic>
#include <utility>

namespace zarn::client {
namespace {

std::atomic<long> works{0};

/// What the thread is handed, and gives back at its end.
struct Task {
  std::shared_ptr<Work> work;
  HMODULE module = nullptr;
  KernelHandle actsFor;  ///< none: for its process, as the one that began it
};

/// Whom this thread acts for, which a thread that it begins would not know. False when there is
/// somebody and it cannot be handed on: nothing may be done with the process's rights instead.
bool readIdentity(KernelHandle& actsFor) {
  return OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE, TRUE, actsFor.receive()) != 0 ||
         GetLastError() == ERROR_NO_TOKEN;
}

/// Keeps this code where it is until FreeLibrary; null when that cannot be had.
HMODULE holdModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&holdModule), &module);
  return module;
}

DWORD WINAPI runTask(void* context) {
  HMODULE module = nullptr;
  {
    const std::unique_ptr<Task> task(static_cast<Task*>(context));
    // Its end takes that back.
    if (!task->actsFor || SetThreadToken(nullptr, task->actsFor.get()) != 0) task->work->run();
    module = task->module;
  }
  // Nothing is left to destroy when the module goes.
  works.fetch_sub(1);
  FreeLibraryAndExitThread(module, 0);
}

}  // namespace

WaitEnd runBounded(std::shared_ptr<Work> work, DWORD limit, const KernelHandle& cancel) {
  auto task = std::make_unique<Task>();
  task->work = std::move(work);
  if (!readIdentity(task->actsFor)) return WaitEnd::NoThread;
  if (works.fetch_add(1) >= kMostWorks) {
    works.fetch_sub(1);
    return WaitEnd::TooMany;
  }
  task->module = holdModule();
  const KernelHandle thread(
      task->module == nullptr ? nullptr : CreateThread(nullptr, 0, runTask, task.get(), 0, nullptr));
  if (!thread) {
    if (task->module != nullptr) FreeLibrary(task->module);
    works.fetch_sub(1);
    return WaitEnd::NoThread;
  }
  // The thread's from here on.
  static_cast<void>(task.release());
  const std::array<HANDLE, 2> ends{thread.get(), cancel.get()};
  switch (WaitForMultipleObjects(cancel ? 2 : 1, ends.data(), FALSE, limit)) {
    case WAIT_OBJECT_0:
      return WaitEnd::Done;
    case WAIT_OBJECT_0 + 1:
      return WaitEnd::Cancelled;
    default:
      return WaitEnd::TimedOut;
  }
}

}  // namespace zarn::client
