// What somebody meant who mistyped a name.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace zarn::tool {

/// The name that is nearest to what was typed, empty when none is near: a slip in every
/// three letters at most, upper case and lower case being the same, or a name that begins
/// with three letters or more of what was typed. Of several that are as near, the first.
[[nodiscard]] std::string_view nearest(std::string_view typed, std::span<const std::string_view> names);

}  // namespace zarn::tool
