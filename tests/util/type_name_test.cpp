#include "util/type_name.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace zarn {

struct FailureOfATest : std::runtime_error {
  using std::runtime_error::runtime_error;
};

TEST(TypeName, IsThatOfTheRunTimeTypeAndReadable) {
  const FailureOfATest derived("x");
  const std::exception& seenAsBase = derived;
  EXPECT_EQ(typeName(seenAsBase), "zarn::FailureOfATest");
  EXPECT_EQ(typeName(std::out_of_range("x")), "std::out_of_range");
}

}  // namespace zarn
