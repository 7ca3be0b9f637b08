#include <pthread.h>

#include <csignal>
#include <cstring>

#include "util/io_interruption.h"

namespace zarn {
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

static_assert(sizeof(pthread_t) == sizeof(void*));

}  // namespace

InterruptibleThread::InterruptibleThread() noexcept {
  const pthread_t self = ::pthread_self();
  std::memcpy(&handle_, &self, sizeof(self));
  static_cast<void>(interruptingSignal());
}

InterruptibleThread::~InterruptibleThread() = default;

void InterruptibleThread::cancelIo() const noexcept {
  pthread_t thread{};
  std::memcpy(&thread, &handle_, sizeof(thread));
  ::pthread_kill(thread, interruptingSignal());
}

}  // namespace zarn
