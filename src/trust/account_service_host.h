// Where the publisher's account service is.
#pragma once

#include <string>

#include "util/host_and_port.h"

namespace zarn {

/// The host, or host and port as "host:port", of the account service: the
/// environment variable ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST when it is set and
/// not empty, else the one chosen when the program was built. Not validated.
[[nodiscard]] std::string accountServiceHost();
[[nodiscard]] std::string builtInAccountServiceHost();

}  // namespace zarn
