// Memory that a caller named, which may be none, may end anywhere and may be given back by another
// thread meanwhile: copied by the system, so that none of this costs the caller's process more
// than an error code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

namespace zarn::client {

[[nodiscard]] bool readMemory(const void* from, void* to, std::size_t bytes) noexcept;
[[nodiscard]] bool writeMemory(void* to, const void* from, std::size_t bytes) noexcept;

enum class TextRead : std::uint8_t { Whole, Unreadable, TooLong };

/// A text of at most `mostUnits` and its end. What lies behind the end is not needed. Throws
/// std::bad_alloc.
[[nodiscard]] TextRead readText(const wchar_t* from, std::size_t mostUnits, std::wstring& text);

/// As many units as there is room for, and a zero. A pair of surrogates is not cut apart.
[[nodiscard]] bool writeText(wchar_t* to, std::size_t units, std::wstring_view text);

/// No record will ever be larger: what says so was never set.
inline constexpr std::uint32_t kMostRecordBytes = 1U << 16;

/// Copies the record that a caller filled. `firstSize` is what the first version of the interface
/// had. Members that the caller does not have are 0; false when there are some that this library
/// does not have and that are not 0.
[[nodiscard]] bool readRecord(const void* from, void* to, std::uint32_t bytes, std::uint32_t firstSize);

/// Where an answer goes: `bytes` is what both sides know of it, 0 when it cannot be written to.
[[nodiscard]] std::uint32_t recordRoom(const void* record, std::uint32_t bytes,
                                       std::uint32_t firstSize) noexcept;

}  // namespace zarn::client
