#include "os/process.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>

namespace zarn {

std::optional<std::string> environmentVariable(const char* name) {
  const char* const text = std::getenv(name);
  if (text == nullptr) return std::nullopt;
  return text;
}

std::uint32_t currentThreadId() noexcept {
  thread_local const auto id = static_cast<std::uint32_t>(::syscall(SYS_gettid));
  return id;
}

void setCurrentThreadName(const char* name) noexcept {
  ::pthread_setname_np(::pthread_self(), name);
}

namespace os {

void startUnawaited(std::function<void()> work) {
  std::thread(std::move(work)).detach();
}
namespace {

/// A signal that does nothing but interrupt: its handler is installed without
/// SA_RESTART, so that a blocking call ends with EINTR.
int interruptingSignal() noexcept {
  static const int number = [] {
    const int chosen = SIGRTMIN + 4;
    struct sigaction action {};
    action.sa_handler = [](int) {};
    return sigaction(chosen, &action, nullptr) == 0 ? chosen : 0;
  }();
  return number;
}

}  // namespace

Result<void> setEnvironmentVariable(const char* name, std::string_view text) {
  return resultOf((text.empty() ? ::unsetenv(name) : ::setenv(name, std::string(text).c_str(), 1)) == 0);
}

void removeEnvironmentVariable(const char* name) noexcept {
  ::unsetenv(name);
}

Result<std::string> executablePath() {
  char path[4096];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
  if (length < 0) return lastFailure();
  return std::string(path, static_cast<std::size_t>(length));
}

void endAfterFatalError() noexcept {
  std::abort();
}

static_assert(sizeof(pthread_t) == sizeof(void*), "the thread is kept in a pointer's place");

InterruptibleThread::InterruptibleThread() noexcept {
  const pthread_t self = ::pthread_self();
  std::memcpy(handle_.receive(), &self, sizeof(self));
  // Installed before anybody sends it: the default action would end the process.
  static_cast<void>(interruptingSignal());
}

// A thread is known by its number, which nobody has to give back.
void InterruptibleThread::Traits::close(Handle /*handle*/) noexcept {}

void InterruptibleThread::cancelIo() const noexcept {
  pthread_t thread{};
  const Traits::Handle handle = handle_.get();
  std::memcpy(&thread, &handle, sizeof(thread));
  ::pthread_kill(thread, interruptingSignal());
}

}  // namespace os
}  // namespace zarn
