// What safeOpen and held folders share; not for other libraries.
#pragma once

#include <cstdint>
#include <string_view>

#include "util/file_utils.h"

namespace zarn::FileUtils {

/// The flags of open() for a mode of fopen; "w" truncates nothing yet.
[[nodiscard]] int openFlags(std::string_view mode);

/// A stream that owns `descriptor`, truncated now where the mode says so; with
/// `onlyPlain`, of a plain file with one name. Null, with `error` set, when it cannot be
/// had or when `descriptor` is -1 and errno says why.
[[nodiscard]] ScopedFile toStream(int descriptor, const char* mode, bool onlyPlain, std::uint32_t& error);

}  // namespace zarn::FileUtils
