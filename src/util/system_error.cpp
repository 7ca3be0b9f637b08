#include "util/system_error.h"

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

}  // namespace zarn
