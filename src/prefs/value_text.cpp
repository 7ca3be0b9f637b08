#include "prefs/value_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

#include "os/text.h"

namespace zarn {
namespace {

/// Numbers are read without a plus sign; one in front is dropped, unless another sign follows.
std::string_view withoutPlus(std::string_view text) noexcept {
  const bool plus = text.size() > 1 && text[0] == '+' && text[1] != '-';
  return plus ? text.substr(1) : text;
}

/// from_chars takes words in every case and with appendices, as in "NaN" and "nan(1)": more
/// than is allowed.
bool isAllowedWord(std::string_view text) noexcept {
  constexpr std::array<std::string_view, 5> words = {"nan", "NAN", "infinity", "INFINITY", "inf"};
  return std::find(words.begin(), words.end(), text) != words.end();
}

std::string decode(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::optional<std::uint8_t> byte;
    if (text[i] == '%' && i + 2 < text.size())
      byte = os::parseNumber<std::uint8_t>(text.substr(i + 1, 2), 16);
    if (byte) {
      result += static_cast<char>(*byte);
      i += 2;
    } else {
      result += text[i] == '+' ? ' ' : text[i];
    }
  }
  return result;
}

}  // namespace

std::optional<std::int32_t> parseInt(std::string_view text) noexcept {
  return os::parseNumber<std::int32_t>(withoutPlus(text));
}

std::optional<double> parseDouble(std::string_view text) noexcept {
  text = withoutPlus(text);
  const std::string_view unsignedText = !text.empty() && text[0] == '-' ? text.substr(1) : text;
  if (!unsignedText.empty() && os::isLetter(unsignedText[0]) && !isAllowedWord(unsignedText))
    return std::nullopt;
  return os::parseNumber<double>(text);
}

// to_chars, since printf would write the decimal point of the user's language.
std::string doubleText(double value) {
  std::array<char, 32> buffer{};  // sign, 17 digits, point, "e-308"
  const auto [end, error] =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::general, 17);
  if (error != std::errc()) throw ConversionError("double without text");
  return {buffer.data(), end};
}

QueryString::QueryString(std::string_view text) {
  while (!text.empty()) {
    const std::string_view pair = text.substr(0, text.find('&'));
    // The sign goes with its pair, but for the last one, which has none.
    text.remove_prefix(pair.size() < text.size() ? pair.size() + 1 : pair.size());
    const std::string_view key = pair.substr(0, pair.find('='));
    if (key.empty()) continue;
    const std::string_view value =
        key.size() < pair.size() ? pair.substr(key.size() + 1) : std::string_view();
    values_.emplace(decode(key), decode(value));  // keeps the first of two
  }
}

const std::string* QueryString::find(std::string_view key) const {
  const auto found = values_.find(key);
  return found != values_.end() ? &found->second : nullptr;
}

}  // namespace zarn
