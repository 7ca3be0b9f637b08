// Outside text in a log line: one record stays one line, printable text stays itself.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "util/printable.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string shown = zarn::printable(text);
  for (const char c : shown) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) std::abort();
  }
  if (zarn::printable(shown) != shown) std::abort();  // nothing is left to escape
  return 0;
}
