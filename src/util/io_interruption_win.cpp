#include <windows.h>

#include "util/io_interruption.h"

namespace zarn {

InterruptibleThread::InterruptibleThread() noexcept
    : handle_(OpenThread(THREAD_TERMINATE, FALSE, GetCurrentThreadId())) {
}  // the right that cancelling needs

InterruptibleThread::~InterruptibleThread() {
  if (handle_ != nullptr) CloseHandle(handle_);
}

void InterruptibleThread::cancelIo() const noexcept {
  if (handle_ != nullptr) CancelSynchronousIo(handle_);
}

}  // namespace zarn
