// The stack over which an NSIS script and its plug-ins exchange texts.
#pragma once

#include <windows.h>

#include <string>

namespace zarn::setup {

/// One entry, as NSIS lays it out: allocated with GlobalAlloc, its text as long
/// as the script's strings are.
struct StackEntry {
  StackEntry* next;
  wchar_t text[1];
};

class NsisStack {
 public:
  /// `characters`: how long a text may be, its end included.
  NsisStack(StackEntry** top, int characters) noexcept : top_(top), characters_(characters) {}

  /// Throws SetupError when the script gave too few arguments.
  [[nodiscard]] std::wstring pop();
  /// Cuts what is too long. Out of memory: nothing is pushed.
  void push(const std::wstring& text) noexcept;

 private:
  StackEntry** top_;
  int characters_;
};

}  // namespace zarn::setup
