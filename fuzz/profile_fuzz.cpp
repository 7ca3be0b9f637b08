// The certificate profile comes from the network: whatever it holds, reading it
// ends, and what it approves stood in it.
#include "fuzz.h"
#include "trust/certificate_profile.h"

void judge(const std::string& body) {
  const auto digests = zarn::parseCertificateProfile(body);
  if (!digests || body.find('\\') != std::string::npos) return;  // what is escaped stands there otherwise
  for (const auto& digest : *digests) require(body.find(digest) != std::string::npos);
}
