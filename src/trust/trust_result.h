// The answer of a trust check. There is no way to have one by default, and none
// that is both a refusal and the number 0.
#pragma once

#include <cstdint>

#include "os/system_error.h"

namespace zarn {

class [[nodiscard]] TrustResult {
 public:
  static constexpr TrustResult verified() noexcept { return TrustResult(0); }

  /// `code` is a Win32 error, a provider's status or a code of ours. A failed call
  /// may leave 0 as its error: that becomes failureCode(0).
  static constexpr TrustResult refused(std::uint32_t code) noexcept { return TrustResult(failureCode(code)); }

  [[nodiscard]] constexpr bool isVerified() const noexcept { return code_ == 0; }

  /// 0 exactly when verified.
  [[nodiscard]] constexpr std::int32_t code() const noexcept { return static_cast<std::int32_t>(code_); }

 private:
  explicit constexpr TrustResult(std::uint32_t code) noexcept : code_(code) {}

  std::uint32_t code_;
};

}  // namespace zarn
