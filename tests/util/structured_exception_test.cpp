#include "util/structured_exception.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>

namespace zarn {

TEST(StructuredException, GoesToTheInnermostCallThatWantsIt) {
  static int* volatile nowhere = nullptr;
  const auto isAccessViolation = [](std::uint32_t code) { return code == 0xC0000005; };
  for (const DWORD code : {1722UL, 0xE06D7363UL, 0x80070005UL}) {
    std::uint32_t inner = 1;
    int steps = 0;
    const auto work = [&] {
      inner = callCatching([&] { ++steps, *nowhere = 1; }, isAccessViolation);
      ++steps;
      inner += callCatching([code] { RaiseException(code, 0, 0, nullptr); }, isAccessViolation);
      ++steps;
    };
    EXPECT_EQ(callCatching(work, catchEvery), code);
    EXPECT_TRUE(inner == 0xC0000005 && steps == 2) << inner << " " << steps;
  }
  EXPECT_EQ(callCatching([] {}, catchEvery), 0U);
}

TEST(StructuredException, LeavesCppExceptionsToTheirCatch) {
  const auto object = std::make_shared<int>(7);
  const auto raise = [&] {
    const auto inside = object;
    throw *inside;
  };
  const auto work = [&] {
    const auto outside = object;
    static_cast<void>(callCatching(raise, catchEvery));
  };
  EXPECT_THROW(work(), int);
  EXPECT_EQ(object.use_count(), 1);
}

}  // namespace zarn
