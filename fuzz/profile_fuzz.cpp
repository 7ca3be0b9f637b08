// The certificate profile comes from the network: whatever it holds, reading it
// ends, and what it approves stood in it.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "trust/certificate_profile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  const auto digests = zarn::parseCertificateProfile(body);
  if (!digests) return 0;
  for (const auto& digest : *digests) {
    const bool escaped = body.find('\\') != std::string::npos;
    if (!escaped && body.find(digest) == std::string::npos) std::abort();
  }
  return 0;
}
