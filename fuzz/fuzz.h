// What all fuzzers share.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

inline void require(bool holds) {
  if (!holds) std::abort();
}

/// What holds of any bytes; each fuzzer defines it.
void judge(const std::string& text);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  judge(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
