// What file_utils.cpp needs of the platform; not for other libraries.
#pragma once

#include <string>

namespace zarn::FileUtils::platform {

extern const char kSeparator;
[[nodiscard]] bool isSeparator(char c) noexcept;

/// The user's local application-data folder, created when missing; fatal when there is none.
std::string userApplicationDataFolder();

/// Full path of the running program; fatal when it cannot be had.
std::string executablePath();

}  // namespace zarn::FileUtils::platform
