// Names of run-time types, for log lines that end in ": %s, type: %s".
#pragma once

#include <exception>
#include <string>

namespace zarn {

/// The readable name of the exception's run-time type, such as "std::runtime_error";
/// the compiler's own encoding of it when that cannot be decoded.
[[nodiscard]] std::string typeName(const std::exception& error);

}  // namespace zarn
