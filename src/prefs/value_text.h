// Preference values as text and back, independent of the locale.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zarn {

/// A text that is not a value of the type it was meant for.
struct ConversionError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The whole text as a decimal number with an optional sign; nothing otherwise.
[[nodiscard]] std::optional<std::int32_t> parseInt(std::string_view text) noexcept;

/// The whole text as a decimal or exponent form, or one of the words nan, NAN,
/// infinity, INFINITY and inf, each with an optional sign; nothing otherwise, and
/// nothing for a number that a double cannot hold.
[[nodiscard]] std::optional<double> parseDouble(std::string_view text) noexcept;

/// The form of "%.*g" with precision 17, which reads back as the same number.
[[nodiscard]] std::string doubleText(double value);

/// Compares ASCII letters without regard to case.
[[nodiscard]] bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept;

}  // namespace zarn
