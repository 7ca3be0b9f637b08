// The process's standard output and standard error, UTF-8.
#pragma once

#include <string_view>

namespace zarn::tool {

enum class Stream : unsigned char { Output, Error };

/// False when the text could not be written, with the reason in the last error.
/// A stream that the process does not have counts as written.
bool write(Stream stream, std::string_view text);

/// Whether somebody watches: the stream is a terminal and not a file or pipe.
[[nodiscard]] bool isTerminal(Stream stream) noexcept;

}  // namespace zarn::tool
