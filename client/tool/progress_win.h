// The line that shows that something is going on, for who watches a terminal.
#pragma once

#include <cstddef>
#include <cstdint>

#include "client/tool/console_win.h"

namespace zarn::tool {

class Progress {
 public:
  /// Elapsed time and the service's state, over the line before. Nothing when
  /// standard error is not a terminal.
  void show(std::int64_t elapsedMilliseconds);
  /// Takes the line away.
  void clear();

 private:
  bool watched_ = isTerminal(Stream::Error);
  std::size_t shownWidth_ = 0;
};

}  // namespace zarn::tool
