// Structured exceptions as return values, for a compiler without __try.
#pragma once

#include <cstdint>

namespace zarn {

/// Whether an exception of this code is to be caught. Called on the thread that
/// raised it, with the stack of the raise still there, so that it can also end the
/// process from where the fault is.
using ExceptionFilter = bool (*)(std::uint32_t code);

/// Calls `routine(context)`. Returns 0 when it returned, and the code (never 0) when
/// it raised a structured exception that `filter` wants caught: a fault of the
/// processor, or what a library raised. C++ exceptions of this compiler are never
/// asked for and always pass on. Calls may be nested; the innermost that wants an
/// exception has it.
///
/// The frames between here and the raise are unwound without running C++
/// destructors: what they held is never given back, and a lock among it stays
/// locked. So `routine` should hold as little as it can.
[[nodiscard]] std::uint32_t callCatching(void (*routine)(void*), void* context, ExceptionFilter filter);

/// The same for a function without arguments, such as a lambda.
template <typename Work>
[[nodiscard]] std::uint32_t callCatching(Work&& work, ExceptionFilter filter) {
  auto call = [&work] { work(); };
  return callCatching([](void* object) { (*static_cast<decltype(call)*>(object))(); }, &call, filter);
}

/// A filter: every exception that nothing nearer to the raise has handled.
[[nodiscard]] inline bool catchEvery(std::uint32_t /*code*/) noexcept {
  return true;
}

}  // namespace zarn
