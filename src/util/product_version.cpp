#include "util/product_version.h"

#include <fmt/format.h>

#include <charconv>
#include <system_error>

namespace zarn {

std::string versionText(const ProductVersion& version) {
  return fmt::format("{}", fmt::join(version.parts, "."));
}

std::optional<ProductVersion> parseVersion(std::string_view text) {
  ProductVersion version;
  const char* at = text.data();
  const char* const end = at + text.size();
  for (std::size_t i = 0; i < version.parts.size(); ++i) {
    if (i > 0 && (at == end || *at++ != '.')) return std::nullopt;
    const auto [next, error] = std::from_chars(at, end, version.parts[i]);
    if (error != std::errc()) return std::nullopt;
    at = next;
  }
  if (at != end) return std::nullopt;
  return version;
}

}  // namespace zarn
