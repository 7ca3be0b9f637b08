// Last resorts: work whose failure nobody is left to hear of.
#pragma once

#include <utility>

namespace zarn {

/// Runs `work` and passes over whatever it throws. For what logs inside a handler, a
/// destructor or a noexcept function: making the text of a line needs memory, and a
/// line that cannot be had must not cost the process.
template <typename Work>
void quietly(Work&& work) noexcept {
  try {
    std::forward<Work>(work)();
  } catch (...) {  // NOLINT(bugprone-empty-catch): see above
  }
}

}  // namespace zarn
