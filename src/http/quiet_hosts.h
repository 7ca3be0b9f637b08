// Hosts whose requests leave no request and response lines in the log.
#pragma once

#include <string_view>

namespace zarn {

/// Whether any quiet host occurs in the URL.
[[nodiscard]] bool isQuietUrl(std::string_view url) noexcept;

}  // namespace zarn
