// The entry of a libFuzzer program, which has one target.
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), std::min(size, zarn::fuzz::kLongestInput));
  zarn::fuzz::Target::judged = &input;
  zarn::fuzz::Target::first->judge(input);
  return 0;
}
