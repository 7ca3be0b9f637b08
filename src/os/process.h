// This process and its threads.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "os/handles.h"
#include "os/system_error.h"

namespace zarn {

/// The variable's text in UTF-8; nothing when it is not set. May be called from any thread.
[[nodiscard]] std::optional<std::string> environmentVariable(const char* name);

/// The system's identifier of the calling thread, as it appears in log lines.
[[nodiscard]] std::uint32_t currentThreadId() noexcept;

/// Names the calling thread for debuggers; at most 15 characters are kept everywhere.
void setCurrentThreadName(const char* name) noexcept;

namespace os {

/// Begins a thread that nobody waits for. Throws std::system_error when there is none to be had.
/// For few: on Windows its handle is kept as long as the process.
void startUnawaited(std::function<void()> work);

/// In this process's environment block, UTF-8; an empty text takes the variable away.
/// Not while other threads read the environment.
[[nodiscard]] Result<void> setEnvironmentVariable(const char* name, std::string_view text);

/// For this process, its C library included. Not while other threads read the environment.
void removeEnvironmentVariable(const char* name) noexcept;

/// Full path of the running program, UTF-8.
[[nodiscard]] Result<std::string> executablePath();

/// Ends the process with the exception code 0xC0DEDEAD (natively: by abort()).
[[noreturn]] void endAfterFatalError() noexcept;

/// The thread that makes the object, seen from others. Must not outlive it.
class InterruptibleThread {
 public:
  InterruptibleThread() noexcept;
  InterruptibleThread(const InterruptibleThread&) = delete;
  InterruptibleThread& operator=(const InterruptibleThread&) = delete;

  /// Cancels the blocking operation that the thread is in, if it is in one. From any thread.
  void cancelIo() const noexcept;

 private:
  struct Traits {
    using Handle = void*;
    static Handle invalid() noexcept { return nullptr; }
    static void close(Handle handle) noexcept;
  };
  ScopedHandle<Traits> handle_;  ///< invalid on Windows when the system gives none
};

}  // namespace os
}  // namespace zarn
