// The system's words for its errors, in UTF-8.
#pragma once

#include <boost/system/error_code.hpp>
#include <cstdint>
#include <string>

#include "os/system_error.h"

namespace zarn {

/// The system's text for `code`, with the line break that the system puts at its end;
/// empty when the system has none.
[[nodiscard]] std::string systemErrorText(std::uint32_t code);

/// The same without trailing line breaks and blanks, for use inside a sentence.
[[nodiscard]] std::string systemErrorPhrase(std::uint32_t code);
[[nodiscard]] inline std::string systemErrorPhrase(SystemError error) {
  return systemErrorPhrase(error.code());
}
/// The same for what Boost reports, whose own message() is in the encoding of the
/// user's language on Windows.
[[nodiscard]] std::string systemErrorPhrase(const boost::system::error_code& error);

/// A code as Windows shows it: decimal, and hexadecimal where that is how it is known.
[[nodiscard]] std::string codeText(std::uint32_t code);

/// "0x800b0100, No signature was present in the subject."
[[nodiscard]] std::string describeSystemError(std::uint32_t code);
[[nodiscard]] inline std::string describeSystemError(SystemError error) {
  return describeSystemError(error.code());
}

}  // namespace zarn
