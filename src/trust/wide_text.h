// UTF-16 text of system calls as UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace zarn {

/// Stops at the first zero character. Never throws for the text's content.
[[nodiscard]] std::string utf8FromWide(std::wstring_view text);

}  // namespace zarn
