// The list of every preference that the server knows, as data. Only for the
// store in this folder; everybody else asks the store.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <variant>

#include "prefs/preference.h"

namespace zarn::catalogue {

struct Row {
  std::string_view identifier;
  /// The type of the default is the type of the preference; 16 bits mean an Int
  /// that is always hidden.
  std::variant<const char*, bool, std::int32_t, std::uint16_t, double> defaultValue;
  PreferenceFlags flags = PreferenceFlags::None;
  const char* group = "";
  const char* featureId = "";
};

struct Texts {
  std::string_view identifier;
  std::string_view label;
  std::string_view summary;
};

struct Choice {
  std::string_view identifier;
  std::string_view value;
  std::string_view label;
};

/// In the order of registration.
[[nodiscard]] std::span<const Row> rows() noexcept;

/// English texts of the preferences that somebody may see.
[[nodiscard]] std::span<const Texts> texts() noexcept;

/// The choices of enumerated preferences, those of one preference in display order.
[[nodiscard]] std::span<const Choice> choices() noexcept;

[[nodiscard]] std::shared_ptr<Preference> makePreference(const Row& row,
                                                         const Preference::Overrides& overrides);

}  // namespace zarn::catalogue
