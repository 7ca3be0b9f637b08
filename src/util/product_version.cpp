#include "util/product_version.h"

#include <fmt/format.h>

#include "os/text.h"

namespace zarn {

std::string versionText(const ProductVersion& version) {
  return fmt::format("{}", fmt::join(version.parts, "."));
}

std::optional<ProductVersion> parseVersion(std::string_view text) {
  ProductVersion version;
  for (std::uint16_t& part : version.parts) {
    // The last part goes to the end of the text: a fifth one makes it no number.
    const bool isLast = &part == &version.parts.back();
    const std::size_t end = isLast ? text.size() : text.find('.');
    const auto number = os::parseNumber<std::uint16_t>(text.substr(0, end));
    if (!number || end == std::string_view::npos) return std::nullopt;
    part = *number;
    text.remove_prefix(isLast ? end : end + 1);
  }
  return version;
}

}  // namespace zarn
