// What file_utils.cpp needs of the platform; not for other libraries.
#pragma once

#include <string>

namespace zarn::FileUtils::platform {

#ifdef _WIN32
inline constexpr char kSeparator = '\\';
constexpr bool isSeparator(char c) noexcept {
  return c == '\\' || c == '/';
}
#else
inline constexpr char kSeparator = '/';
constexpr bool isSeparator(char c) noexcept {
  return c == '/';
}
#endif

/// The user's local application-data folder, created when missing; fatal when there is none.
std::string userApplicationDataFolder();

/// Full path of the running program; fatal when it cannot be had.
std::string executablePath();

}  // namespace zarn::FileUtils::platform
