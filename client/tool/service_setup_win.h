// How the service is set up on this machine: its environment and its folders.
#pragma once

#include <string>

namespace zarn::tool {

/// Gives this process the product's and the proxies' variables of the machine and
/// those set for the service alone, in place of this user's, so that what the tool
/// works out is what the service would. Does nothing on a machine without the
/// service.
void adoptServiceEnvironment();

/// The service's Logs folder: the one of the account it runs as or of the current
/// user, whichever has the service's newest log; its account's when neither has
/// one. `given`, when not empty, is the answer.
[[nodiscard]] std::string serviceLogFolder(const std::string& given);

}  // namespace zarn::tool
