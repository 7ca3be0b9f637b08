// What machine this is. Stateless; every function may be called from any thread
// and none fails. Texts are UTF-8. Windows only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zarn {

/// The name of a native processor architecture code; empty when unknown.
[[nodiscard]] std::string_view architectureName(std::uint16_t code) noexcept;

/// "major.minor (Build number)" from the packed form that GetVersion() answers.
[[nodiscard]] std::string formatOSVersion(std::uint32_t version);

/// Vendor, device and model of the platform. Each is replaced by its environment
/// variable, when that is set, even to an empty text; so they may hold anything
/// and need printable() before they are logged.
void getPlatformInfo(std::string& vendor, std::string& device, std::string& model);

/// The Windows version that the process is manifested for.
[[nodiscard]] std::string getOSVersionString();

/// Language and country, as in "de-DE"; "en-US" and a logged error for an
/// identifier that Windows does not know.
[[nodiscard]] std::string getLocaleName(std::uint32_t lcid);

// One line each, at level Info.
void logOSInformation();
void logProcessorInformation();

}  // namespace zarn
