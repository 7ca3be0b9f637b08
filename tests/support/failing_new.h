// Replaces the program's operator new by one that fails when the program wants it to.
// For one file of a program that no sanitizer gives an operator new of its own.
#pragma once

#include <cstdlib>
#include <new>

namespace zarn::testing {

/// Whether the allocation under way is to fail. The program that includes this defines it.
bool allocationFails() noexcept;

}  // namespace zarn::testing

#ifndef __clang_analyzer__  // it would take every matcher of the framework for a leak
// NOLINTBEGIN(cppcoreguidelines-no-malloc): what operator new is made of
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = zarn::testing::allocationFails() ? nullptr : std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)
#endif
