// One owner for every kind of system handle. A kind is a traits struct:
//
//   struct FileHandleTraits {
//     using Handle = HANDLE;
//     static Handle invalid() noexcept { return INVALID_HANDLE_VALUE; }
//     static void close(Handle handle) noexcept { CloseHandle(handle); }
//   };
//
// NULL and -1 are never treated alike: each kind names its own invalid value.
#pragma once

#include <utility>

#include "os/system_error.h"

namespace zarn {

template <typename Traits>
class ScopedHandle {
 public:
  using Handle = typename Traits::Handle;

  ScopedHandle() noexcept : handle_(Traits::invalid()) {}
  explicit ScopedHandle(Handle handle) noexcept : handle_(handle) {}
  ScopedHandle(ScopedHandle&& other) noexcept : handle_(other.release()) {}
  ScopedHandle& operator=(ScopedHandle&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~ScopedHandle() { reset(); }

  [[nodiscard]] bool isValid() const noexcept { return handle_ != Traits::invalid(); }
  explicit operator bool() const noexcept { return isValid(); }
  [[nodiscard]] Handle get() const noexcept { return handle_; }

  /// Gives the handle up; the caller owns it from here on.
  [[nodiscard]] Handle release() noexcept { return std::exchange(handle_, Traits::invalid()); }

  /// Closes what is held, keeping the thread's last error, and takes `handle`.
  void reset(Handle handle = Traits::invalid()) noexcept {
    const Handle old = std::exchange(handle_, handle);
    if (old == Traits::invalid()) return;
    const LastErrorKeeper keeper;
    Traits::close(old);
  }

  /// For calls that return a handle through a pointer. Closes what is held first.
  [[nodiscard]] Handle* receive() noexcept {
    reset();
    return &handle_;
  }

 private:
  Handle handle_;
};

}  // namespace zarn
