// What opening by path and opening in a held folder share; not for other libraries.
#pragma once

#include <string_view>

#include "os/files.h"

namespace zarn::os {

/// The flags of open() for a mode of fopen; "w" truncates nothing yet.
[[nodiscard]] int openFlags(std::string_view mode);

/// A stream that owns `descriptor`, truncated now where the mode says so; with
/// `onlyPlain`, of a plain file with one name. Fails with errno when `descriptor` is -1.
[[nodiscard]] OpenResult toStream(int descriptor, const char* mode, bool onlyPlain);

}  // namespace zarn::os
