// Exceptions where they end: their type's name for the log, and work that must not throw.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace zarn {

/// The readable name of the exception's run-time type, such as "std::runtime_error";
/// the compiler's own encoding of it when that cannot be decoded. For log lines that end
/// in ": %s, type: %s".
[[nodiscard]] std::string typeName(const std::exception& error);

/// Runs `work` and passes over whatever it throws. For work in a handler, a destructor or
/// a noexcept function that has nobody to report to: making the text of a log line needs
/// memory, and when there is none the line is lost, but the process goes on.
template <typename Work>
void quietly(Work&& work) noexcept {
  try {
    std::forward<Work>(work)();
  } catch (...) {  // NOLINT(bugprone-empty-catch): see above
  }
}

}  // namespace zarn
