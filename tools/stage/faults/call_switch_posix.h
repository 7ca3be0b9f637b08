// One switch below everything that this process does: each system call, each allocation and
// each thread that is begun is counted and can be made to fail, whoever asks for it, libraries
// included. There is no list of what can fail; what is let through is a list of calls that are
// about memory, signals, time and the life of threads (call_switch_posix.cpp says why).
//
// Linked into a test program it replaces operator new, malloc() and pthread_create(). System
// calls are caught by a seccomp filter in this process, which cannot be taken back: the
// program can start no other.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace zarn::faults {

enum class Kind : std::uint8_t { Calls, Memory, Threads };

struct Plan {
  Kind kind = Kind::Calls;
  std::int64_t first = 0;  ///< the number of the one that fails first, from 1; 0: all go on
  std::int64_t count = 1;  ///< how many fail in a row
  int error = 0;           ///< errno of what fails; system calls only
  long spared = -1;        ///< the number of a system call that always goes on
};

struct Report {
  std::int64_t counted = 0;
  std::int64_t failed = 0;
  std::string lastFailed;  ///< what was asked for
  /// What was asked for ("write", "malloc") and the place in this program that did, 0 for
  /// threads of libraries.
  std::set<std::pair<std::string, std::uintptr_t>> sites;
};

/// Once, before other threads are begun. False where the system has no such filter for us.
[[nodiscard]] bool install();

/// From here on what happens is counted and fails as planned, on every thread.
void arm(const Plan& plan);
/// Everything goes on again. Sites are collected while nothing was to fail.
Report disarm();

}  // namespace zarn::faults
