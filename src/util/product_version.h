// Versions: of this build, of products, and what a program says of itself.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zarn {

/// This build: project version and source revision joined by a hyphen, such as
/// "1.0.0-0123abcde".
extern const char* const kVersion;

/// The version of a product: four numbers that compare one after another.
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

/// What a program says of itself in its version resource. UTF-8; a text that the resource
/// lacks is empty. Its author chose them.
struct FileVersion {
  std::string product;
  std::string productVersion;
  /// The product version that programs compare; the text above may say anything else.
  std::optional<ProductVersion> number;
};

/// Of the file at `path` (UTF-8); all empty when it has no version resource, has one
/// of more than a megabyte or cannot be read. Windows only.
[[nodiscard]] FileVersion readFileVersion(const std::string& path);

}  // namespace zarn
