// What the endurance programs share: one line of a file or a pipe, and numbers from a seed.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace zarn::endurance {

/// The same numbers for the same seed wherever it is built, which distributions of the standard
/// library do not promise.
class Chance {
 public:
  explicit Chance(std::uint64_t seed) noexcept : state_(seed * 2 + 1) {}
  /// Below `bound`; 0 when that is 0.
  std::uint32_t below(std::uint32_t bound) noexcept {
    state_ ^= state_ << 13U;
    state_ ^= state_ >> 7U;
    state_ ^= state_ << 17U;
    return static_cast<std::uint32_t>(bound == 0 ? 0 : (state_ >> 16U) % bound);
  }

 private:
  std::uint64_t state_;
};

/// Whole or not at all, also when the writer is ended right behind it.
inline void writeLine(HANDLE to, std::string line) {
  line += '\n';
  DWORD written = 0;
  WriteFile(to, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

/// For paths of this stage, which are ASCII.
inline std::wstring wide(std::string_view text) {
  return {text.begin(), text.end()};
}
inline std::string narrow(std::wstring_view text) {
  std::string result;
  for (const wchar_t unit : text) result += unit < 0x80 ? static_cast<char>(unit) : '?';
  return result;
}

}  // namespace zarn::endurance
