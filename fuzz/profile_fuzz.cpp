// The certificate profile comes from the network: whatever it holds, reading it
// ends, and what it approves stood in it.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "trust/profile_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  for (const auto& digest : zarn::parseCertificateProfile(body)) {
    const bool escaped = body.find('\\') != std::string::npos;
    if (!escaped && body.find(digest) == std::string::npos) std::abort();
  }
  return 0;
}
