// What this build is.
#pragma once

namespace zarn {

/// Project version and source revision joined by a hyphen, such as "1.0.0-0123abcde".
extern const char* const kVersion;

}  // namespace zarn
