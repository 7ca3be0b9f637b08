#include "prefs/query_string.h"

#include <utility>

namespace zarn {
namespace {

int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string decode(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
    const int low = high >= 0 ? hexValue(text[i + 2]) : -1;
    if (low >= 0) {
      result += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      result += text[i] == '+' ? ' ' : text[i];
    }
  }
  return result;
}

}  // namespace

QueryString::QueryString(std::string_view text) {
  while (!text.empty()) {
    const std::string_view pair = text.substr(0, text.find('&'));
    text.remove_prefix(pair.size() < text.size() ? pair.size() + 1 : pair.size());
    const std::string_view key = pair.substr(0, pair.find('='));
    if (key.empty()) continue;
    const std::string_view value =
        key.size() < pair.size() ? pair.substr(key.size() + 1) : std::string_view();
    values_.emplace(decode(key), decode(value));
  }
}

const std::string* QueryString::find(std::string_view key) const {
  const auto found = values_.find(key);
  return found != values_.end() ? &found->second : nullptr;
}

}  // namespace zarn
