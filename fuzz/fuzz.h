// What all fuzz targets share. A target is one file with a property that holds of any bytes.
// It is linked into a libFuzzer program of its own (libfuzzer.cpp) and, with all others,
// into fuzz_tests (replay.cpp).
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace zarn::fuzz {

/// Inputs are cut here, so that none is slow.
inline constexpr std::size_t kLongestInput = 1024;

/// Registers itself; an object with static storage.
struct Target {
  using Judge = void (*)(const std::string& input);

  Target(const char* targetName, Judge targetJudge) : name(targetName), judge(targetJudge), next(first) {
    first = this;
  }

  const char* name;  ///< that of its folders below fuzz/corpus and fuzz/regressions, too
  Judge judge;
  const Target* next;

  static inline const Target* first = nullptr;
  static inline const std::string* judged = nullptr;  ///< shown when its property does not hold
};

/// Ends the process where a property does not hold.
inline void require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: does not hold of:", file, line);
  for (const char c : *Target::judged) std::fprintf(stderr, " %02x", static_cast<unsigned char>(c));
  std::fputs("\n", stderr);
  std::fflush(stderr);
  std::abort();
}

/// Takes numbers and texts off the beginning of an input; zeros when it is used up.
class Taking {
 public:
  explicit Taking(const std::string& input) : rest_(input) {}

  [[nodiscard]] std::uint8_t byte() {
    const std::string one = text(1);
    return one.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(one[0]);
  }
  [[nodiscard]] std::string text(std::size_t length) {
    std::string taken = rest_.substr(0, length);
    rest_.erase(0, taken.size());
    return taken;
  }
  [[nodiscard]] const std::string& rest() const { return rest_; }

 private:
  std::string rest_;
};

}  // namespace zarn::fuzz
