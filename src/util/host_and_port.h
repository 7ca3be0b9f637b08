// Whether a text names a host and nothing else, and which kinds of proxies there are.
#pragma once

#include <string_view>

namespace zarn {

/// Whether `text` is nothing but a host name, IPv4 address or bracketed IPv6
/// address with an optional port from 1 to 65535, so that it can stand in a URL
/// without bringing a user name, a path or a query along.
[[nodiscard]] bool isHostWithOptionalPort(std::string_view text);

/// Whether `text`, in any letters, is the scheme of a proxy that libcurl knows.
[[nodiscard]] bool isProxyScheme(std::string_view text);

}  // namespace zarn
