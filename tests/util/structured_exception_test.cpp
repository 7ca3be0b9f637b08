#include "util/structured_exception.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace zarn {
namespace {

constexpr std::uint32_t kAccessViolation = 0xC0000005;

void writeNull() {
  static int* volatile nowhere = nullptr;
  *nowhere = 1;
}

bool isAccessViolation(std::uint32_t code) {
  return code == kAccessViolation;
}

TEST(StructuredException, IsReturnedWhenTheFilterWantsIt) {
  int calls = 0;
  EXPECT_EQ(callCatching([&] { ++calls; }, catchEvery), 0U);
  for (int again = 0; again < 3; ++again) {
    EXPECT_EQ(callCatching([&] { ++calls, writeNull(); }, isAccessViolation), kAccessViolation);
  }
  EXPECT_EQ(calls, 4);
  for (const DWORD code : {1722UL, 0xE06D7363UL, 0x80070005UL}) {
    EXPECT_EQ(callCatching([&] { RaiseException(code, 0, 0, nullptr); }, catchEvery), code);
  }
}

TEST(StructuredException, GoesToTheInnermostCallThatWantsIt) {
  std::uint32_t inner = 1;
  bool wentOn = false;
  const std::uint32_t outer = callCatching(
      [&] {
        inner = callCatching(writeNull, isAccessViolation);
        wentOn = true;
        inner += callCatching([] { RaiseException(1722, 0, 0, nullptr); }, isAccessViolation);
        wentOn = false;
      },
      catchEvery);
  EXPECT_EQ(inner, kAccessViolation);
  EXPECT_TRUE(wentOn);
  EXPECT_EQ(outer, 1722U);
}

TEST(StructuredException, LeavesCppExceptionsToTheirCatch) {
  struct CountsItsEnd {
    int& ends;
    ~CountsItsEnd() { ++ends; }
  };
  int ends = 0;
  const auto raise = [&] {
    const CountsItsEnd object{ends};
    throw 7;
  };
  try {
    const CountsItsEnd outside{ends};
    static_cast<void>(callCatching([&] { static_cast<void>(callCatching(raise, catchEvery)); }, catchEvery));
    FAIL() << "swallowed";
  } catch (const int thrown) {
    EXPECT_EQ(thrown, 7);
  }
  EXPECT_EQ(ends, 2);
}

}  // namespace
}  // namespace zarn
