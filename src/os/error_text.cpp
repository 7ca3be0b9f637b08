#include "os/error_text.h"

#include <fmt/format.h>

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
  if ((code & severityBit) != 0) return fmt::format("0x{:08x}", code);
  return fmt::format("{}", code);
}

std::string describeSystemError(std::uint32_t code) {
  const std::string phrase = systemErrorPhrase(code);
  return phrase.empty() ? codeText(code) : codeText(code) + ", " + phrase;
}

}  // namespace zarn
