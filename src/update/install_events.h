// What administrators hear of an install request: the event that its record becomes.
#pragma once

#include <string>

#include "update/install_record.h"

namespace zarn {

/// Reports a request that has ended: UpdateInstalled or InstallFailed when its installer
/// was to run, else RequestRefused. Waits for nothing.
void reportInstall(const InstallRecord& record) noexcept;

/// RequestRefused for a request that is not even recorded; the path is UTF-8.
void reportRefusal(const Caller& caller, const std::string& path, const char* reason) noexcept;

}  // namespace zarn
