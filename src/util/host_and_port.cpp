#include "util/host_and_port.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "os/text.h"

namespace zarn {
namespace {

// Domain names have no room for more.
constexpr std::size_t kLongestHostBytes = 253;
constexpr std::string_view kAddressCharacters = "0123456789abcdefABCDEF:.";
constexpr std::string_view kNameCharacters =
    "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_.";

bool consistsOf(std::string_view text, std::string_view characters) {
  return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

bool isPort(std::string_view text) {
  return os::parseNumber<std::uint16_t>(text).value_or(0) != 0;
}

}  // namespace

// The characters are listed, not the forbidden ones: whatever could end the host in a
// URL, or be decoded into something that does, is then refused without being known.
bool isHostWithOptionalPort(std::string_view text) {
  std::string_view rest;
  if (text.starts_with('[')) {
    const auto end = std::min(text.find(']'), text.size());
    if (end == text.size() || !consistsOf(text.substr(1, end - 1), kAddressCharacters)) return false;
    rest = text.substr(end + 1);
  } else {
    const auto end = std::min(text.find(':'), text.size());
    if (end > kLongestHostBytes || !consistsOf(text.substr(0, end), kNameCharacters)) return false;
    rest = text.substr(end);
  }
  return rest.empty() || (rest.front() == ':' && isPort(rest.substr(1)));
}

bool isProxyScheme(std::string_view text) {
  constexpr std::array<std::string_view, 6> known = {"http",    "https",  "socks4",
                                                     "socks4a", "socks5", "socks5h"};
  return std::ranges::any_of(known, [&](auto one) { return os::equalsIgnoringCase(text, one); });
}

}  // namespace zarn
