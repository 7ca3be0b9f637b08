// Conversions between the UTF-8 that the service uses inside and the UTF-16 of
// wide Windows calls, with a log line for what cannot be converted.
#pragma once

#include <string>
#include <string_view>

namespace zarn::StringUtils {

/// Empty input gives an empty result. Invalid UTF-8 is refused as a whole: an
/// empty result and one logged error. Stops at the first zero character.
[[nodiscard]] std::wstring utf8to16(std::string_view text);

/// Empty input gives an empty result; a failure is logged and gives an empty
/// result. Stops at the first zero character. Lone surrogates become U+FFFD.
[[nodiscard]] std::string utf16to8(std::wstring_view text);

}  // namespace zarn::StringUtils
