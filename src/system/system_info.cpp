#include "system/system_info.h"

#include <algorithm>
#include <array>
#include <utility>

#include "util/logging.h"

namespace zarn {

std::string_view architectureName(std::uint16_t code) noexcept {
  using Entry = std::pair<std::uint16_t, std::string_view>;
  constexpr std::array<Entry, 5> names = {{{0, "x86"}, {5, "arm"}, {6, "ia64"}, {9, "x64"}, {12, "arm64"}}};
  const auto* const found =
      std::find_if(names.begin(), names.end(), [&](const Entry& entry) { return entry.first == code; });
  return found != names.end() ? found->second : std::string_view();
}

std::string formatOSVersion(std::uint32_t version) {
  return formatPrintf("%d.%d (Build %d)", version & 0xFFU, (version >> 8U) & 0xFFU, version >> 16U);
}

}  // namespace zarn
