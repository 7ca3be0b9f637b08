// Texts that leave the machine among collected logs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "os/system_error.h"
#include "util/held_folder.h"

namespace zarn::tool {

/// A UTF-8 text with its secrets masked line by line as the service's log would have them,
/// and "***" for names and passwords in addresses.
[[nodiscard]] std::string masked(std::string_view text);

/// The text of a log that another program wrote, as UTF-8: UTF-16 where it begins with that
/// mark, which Windows Installer's logs do, else as it stands. Of a longer one the last
/// `maximumBytes`, below a line that says so. No link in its place is followed.
[[nodiscard]] Result<std::string> readLogText(const FileUtils::HeldFolder& folder, const std::string& name,
                                              std::int64_t maximumBytes);

}  // namespace zarn::tool
