// Who somebody is, as text: "S-1-5-...". Empty where the system gives none. Includes
// windows.h: only for files that call Windows.
#pragma once

#include <windows.h>

#include <string>

#include "os/handles_win.h"

namespace zarn {

[[nodiscard]] std::string identifierText(PSID identifier);
/// Of the user whose token it is.
[[nodiscard]] std::string userOf(const KernelHandle& token);

}  // namespace zarn
