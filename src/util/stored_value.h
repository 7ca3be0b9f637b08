// A value that an administrator may have stored: missing, read, or there and unreadable,
// which must not be taken for missing.
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace zarn {

/// A stored value that is there and cannot be read.
struct Unreadable {
  std::string reason;     ///< printable
  bool isDenied = false;  ///< this account lacks the right; another one may have it
};
/// A stored value: missing, read, or neither.
template <typename T>
using Stored = std::variant<std::monostate, T, Unreadable>;

template <typename T>
[[nodiscard]] const Unreadable* problemOf(const Stored<T>& stored) noexcept {
  return std::get_if<Unreadable>(&stored);
}

/// What `next` makes of a stored value; one that is missing or unreadable stays so.
template <typename T, typename Next>
[[nodiscard]] auto whenRead(const Stored<T>& stored, const Next& next)
    -> decltype(next(std::declval<const T&>())) {
  if (const auto* problem = problemOf(stored)) return *problem;
  if (const auto* value = std::get_if<T>(&stored)) return next(*value);
  return std::monostate();
}

}  // namespace zarn
