// Default overrides come from the environment as a query string.
#include <cstdint>
#include <string>

#include "prefs/value_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const zarn::QueryString query(std::string(reinterpret_cast<const char*>(data), size));
  (void)query.find("LogNumFiles");
  return 0;
}
