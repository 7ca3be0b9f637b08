// Every function that the service asks the system for, and how each says that it failed.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "faults/fault_section.h"

namespace zarn::faults {

/// How a function says that it failed. Those of the C library leave their reason in errno,
/// the others in the thread's last error.
enum class Says : std::uint8_t {
  Nothing,      ///< it cannot fail
  Zero,         ///< FALSE, null, 0
  MinusOne,     ///< INVALID_HANDLE_VALUE, SOCKET_ERROR, WAIT_FAILED, EOF
  Code,         ///< the error itself: Win32 code, NTSTATUS, HRESULT, errno
  CrtZero,      ///< 0, and errno
  CrtMinusOne,  ///< -1, and errno
};

struct FunctionRow {
  std::string_view name;
  Kind kind = Kind::None;
  Says says = Says::Nothing;
  std::uint32_t error = 0;
  /// Of a function of the C library that works on a stream, which argument that is (from 1): the
  /// stream is marked as failed, as it would be.
  std::uint8_t stream = 0;
};

/// Their order is that of `Site::function` and `Section::function`.
std::span<const FunctionRow> functionTable() noexcept;

/// "files", "memory" and so on.
std::string_view nameOf(Kind kind) noexcept;

/// The number of a row; kAnyFunction when there is none of that name.
std::int32_t rowOf(std::string_view name) noexcept;

}  // namespace zarn::faults
