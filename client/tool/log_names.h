// Which files of a Logs folder, that the media server uses too, are the service's. Pure.
#pragma once

#include <string_view>

namespace zarn::tool {

/// Its logs, its history and the note of a failed start.
[[nodiscard]] bool isServiceLog(std::string_view name) noexcept;

/// What the service collects of installers into "Installer Logs".
[[nodiscard]] bool isInstallerLog(std::string_view name) noexcept;

/// Whether a path asks for a zip file: it ends in ".zip", in any letters.
[[nodiscard]] bool isZipName(std::string_view path) noexcept;

}  // namespace zarn::tool
