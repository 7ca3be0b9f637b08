// Which files of a Logs folder, that the media server uses too, are the service's,
// and which files are logs that installers leave. Names are without their folder, in
// UTF-8 or UTF-16, and are compared letter for letter.
#pragma once

#include <algorithm>
#include <string_view>

namespace zarn {

inline constexpr std::string_view kStartupCrashLog = "Startup Crash.log";

namespace detail {
template <typename Char>
constexpr bool startsWith(std::basic_string_view<Char> name, std::string_view wanted) {
  return name.size() >= wanted.size() &&
         std::equal(wanted.begin(), wanted.end(), name.begin(),
                    [](char letter, Char given) { return given == static_cast<Char>(letter); });
}

template <typename Char>
constexpr bool endsWith(std::basic_string_view<Char> name, std::string_view wanted) {
  return name.size() >= wanted.size() && startsWith(name.substr(name.size() - wanted.size()), wanted);
}
}  // namespace detail

/// What the service collects of installers into "Installer Logs".
template <typename Char>
[[nodiscard]] constexpr bool isInstallerLogName(std::basic_string_view<Char> name) {
  return (detail::startsWith(name, "Zarn Media Server") || detail::startsWith(name, "dd_vcredist")) &&
         detail::endsWith(name, ".log");
}

/// The service's logs, its history and the note of a failed start.
template <typename Char>
[[nodiscard]] constexpr bool isServiceLogName(std::basic_string_view<Char> name) {
  return (detail::startsWith(name, "Zarn Update Service.") && detail::endsWith(name, ".log")) ||
         (detail::startsWith(name, "Update History.") && detail::endsWith(name, ".jsonl")) ||
         (name.size() == kStartupCrashLog.size() && detail::startsWith(name, kStartupCrashLog));
}

}  // namespace zarn
