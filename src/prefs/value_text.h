// Preferences as text: their values, independent of the locale, and the query string in
// which an administrator gives others to fall back to.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
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

/// Text of the form "key=value&key=value", as in the query part of a URL. Keys and values
/// are percent-decoded and '+' stands for a blank; a '%' without two hexadecimal digits
/// stands for itself. Of repeated keys the first counts.
/// A key without '=' has an empty value; a pair with an empty key is dropped.
class QueryString {
 public:
  QueryString() = default;
  explicit QueryString(std::string_view text);

  /// The value of `key`, or null. Valid as long as this object.
  [[nodiscard]] const std::string* find(std::string_view key) const;

 private:
  std::map<std::string, std::string, std::less<>> values_;
};

}  // namespace zarn
