// Text from outside the process, made safe to stand in a log line or in a record.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zarn {

// A character here is a code point, or a byte that is no part of valid UTF-8.

/// No more characters than these of a text from outside are shown in a log line.
inline constexpr std::size_t kLongestShownText = 4096;
/// The same for a field of a record, whose file other programs read.
inline constexpr std::size_t kLongestRecordedText = 1024;

/// `text` with every control character (C0, DEL and the C1 block of UTF-8), the
/// Unicode line and paragraph separators, the controls of the text's direction
/// and every byte that is not part of valid UTF-8 written as "\x" and two
/// hexadecimal digits a byte. Everything else, the backslash included, stays as it
/// is. What would be longer than kLongestShownText is cut there, never inside an
/// escaped character, and followed by the mark that cutText() makes.
[[nodiscard]] std::string printable(std::string_view text);

/// `text` as it is; when it has more than so many characters, the first of them and
/// a mark that says how many the whole has: "... (32767 characters)".
[[nodiscard]] std::string cutText(std::string_view text, std::size_t characters);

}  // namespace zarn
