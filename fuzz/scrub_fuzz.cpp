// The fast scrubber masks exactly what the rules, applied one after another, would.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "log/reference_scrubber.h"
#include "log/token_scrubber.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool crashKeysOnly = (data[0] & 1U) != 0;
  std::string fast(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::string slow = fast;
  zarn::scrubTokens(fast, crashKeysOnly);
  zarn::testing::referenceScrub(slow, crashKeysOnly);
  if (fast != slow) std::abort();
  return 0;
}
