#include <algorithm>
#include <cstddef>

#include "plugin/nsis_call.h"
#include "plugin/setup_error.h"

namespace zarn::setup {

std::wstring NsisStack::pop() {
  if (top_ == nullptr || *top_ == nullptr)
    throw SetupError(ExitCode::Failed, L"Setup called a step wrongly.");
  StackEntry* const entry = *top_;
  *top_ = entry->next;
  std::wstring text(entry->text);
  GlobalFree(entry);
  return text;
}

void NsisStack::push(const std::wstring& text) noexcept {
  const auto room = static_cast<std::size_t>(characters_);
  auto* const entry =
      static_cast<StackEntry*>(GlobalAlloc(GPTR, offsetof(StackEntry, text) + (room + 1) * sizeof(wchar_t)));
  if (entry == nullptr) return;
  std::copy_n(text.data(), std::min(text.size(), room - 1), entry->text);
  entry->next = *top_;
  *top_ = entry;
}

}  // namespace zarn::setup
