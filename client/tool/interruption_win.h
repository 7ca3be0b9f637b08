// Ctrl+C, Ctrl+Break and the closing of the console window.
#pragma once

namespace zarn::tool {

/// While it lives, an interruption writes `sentence` to standard error and ends
/// the process with ExitCode::Interrupted. Of several the newest speaks;
/// `sentence` is a literal.
class Interruption {
 public:
  explicit Interruption(const char* sentence) noexcept;
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption();

 private:
  const char* former_;
};

}  // namespace zarn::tool
