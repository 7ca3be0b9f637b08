// Reading the list of authorities that may vouch for the account service.
#pragma once

#include <string>

#include "client/tool/report/authorities.h"

namespace zarn::tool {

/// Whether an administrator chose a list when the service was set up. What cannot be read
/// counts as chosen: the shipped list may trust more.
[[nodiscard]] bool isListChosen();

/// The list in `resources`, read as OpenSSL reads it for the service's requests: the chosen one
/// when it is there or, by `isChosen`, has to be. `now`: seconds since the epoch.
[[nodiscard]] AuthorityList readAuthorities(const std::string& resources, bool isChosen, std::int64_t now);

}  // namespace zarn::tool
