// The version of a product: four numbers that compare one after another.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zarn {

struct ProductVersion {
  std::array<std::uint16_t, 4> parts{};

  // The check takes the comparison that the compiler makes for one with a null pointer.
  // NOLINTNEXTLINE(modernize-use-nullptr)
  friend constexpr auto operator<=>(const ProductVersion&, const ProductVersion&) = default;
};

/// "7.8.9.0".
[[nodiscard]] std::string versionText(const ProductVersion& version);

/// Of exactly such a text: four decimal numbers up to 65535, and nothing else.
[[nodiscard]] std::optional<ProductVersion> parseVersion(std::string_view text);

}  // namespace zarn
