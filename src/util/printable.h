// Text from outside the process, made safe to stand in a log line.
#pragma once

#include <string>
#include <string_view>

namespace zarn {

/// `text` with every control character (C0, DEL and the C1 block of UTF-8), the
/// Unicode line and paragraph separators and every byte that is not part of
/// valid UTF-8 written as "\x" and two hexadecimal digits a byte. Everything
/// else, the backslash included, stays as it is.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace zarn
