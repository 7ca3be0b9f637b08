// Where the publisher's account service is.
#pragma once

#include <string>
#include <string_view>

namespace zarn {

/// The host, or host and port as "host:port", of the account service: the
/// environment variable ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST when it is set and
/// not empty, else the one chosen when the program was built. Not validated.
[[nodiscard]] std::string accountServiceHost();

/// Whether `text` is nothing but a host name, IPv4 address or bracketed IPv6
/// address with an optional port from 1 to 65535, so that it can stand in a URL
/// without bringing a user name, a path or a query along.
[[nodiscard]] bool isHostWithOptionalPort(std::string_view text);

}  // namespace zarn
