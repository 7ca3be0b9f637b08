// Fields of objects that others wrote.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace zarn {

/// Empty when it is missing or of another type.
[[nodiscard]] inline std::string textAt(const nlohmann::ordered_json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/// None when it is missing or of another type. Of one that does not fit, the lowest bits.
template <typename Number>
[[nodiscard]] std::optional<Number> numberAt(const nlohmann::ordered_json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_integer()) return std::nullopt;
  // Signed and unsigned writings of one 32-bit code mean the same.
  return static_cast<Number>(found->get<std::int64_t>());
}

}  // namespace zarn
