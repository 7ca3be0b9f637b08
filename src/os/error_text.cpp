#include "os/error_text.h"

#include <array>
#include <charconv>

namespace zarn {

std::string systemErrorPhrase(std::uint32_t code) {
  std::string text = systemErrorText(code);
  const auto end = text.find_last_not_of(" \r\n");
  text.resize(end == std::string::npos ? 0 : end + 1);
  return text;
}

std::string systemErrorPhrase(const boost::system::error_code& error) {
  if (error.category() != boost::system::system_category()) return error.message();
  return systemErrorPhrase(static_cast<std::uint32_t>(error.value()));
}

std::string codeText(std::uint32_t code) {
  constexpr std::uint32_t severityBit = 0x80000000;
  const bool isHexadecimal = (code & severityBit) != 0;
  // Of the standard library alone, so that small programs stay small. All eight digits
  // are there when the highest bit is.
  std::array<char, 10> digits{};
  const auto written =
      std::to_chars(digits.data(), digits.data() + digits.size(), code, isHexadecimal ? 16 : 10);
  return (isHexadecimal ? "0x" : "") + std::string(digits.data(), written.ptr);
}

std::string describeSystemError(std::uint32_t code) {
  const std::string phrase = systemErrorPhrase(code);
  return phrase.empty() ? codeText(code) : codeText(code) + ", " + phrase;
}

}  // namespace zarn
