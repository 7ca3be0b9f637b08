// The outcomes that may be, in a table beside the tests.
#pragma once

#include "support/test.h"

namespace zarn::testing {

/// Whether it is a line of outcomes.txt.
inline bool isKnown(const std::string& outcome) {
  return ("\n" + readFile(ZARN_SOURCE "/tests/sweep/outcomes.txt")).find("\n" + outcome + "\n") !=
         outcome.npos;
}

}  // namespace zarn::testing
