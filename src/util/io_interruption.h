// The platform's part of io_deadline.h.
#pragma once

namespace zarn {

/// The thread that makes the object, seen from others. Must not outlive it.
class InterruptibleThread {
 public:
  InterruptibleThread() noexcept;
  InterruptibleThread(const InterruptibleThread&) = delete;
  InterruptibleThread& operator=(const InterruptibleThread&) = delete;
  ~InterruptibleThread();

  /// Cancels the blocking operation that the thread is in, if it is in one. From any thread.
  void cancelIo() const noexcept;

 private:
  void* handle_ = nullptr;  ///< null on Windows when the system gives none
};

}  // namespace zarn
