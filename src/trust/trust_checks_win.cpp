#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/certificate_profile.h"

namespace zarn {

TrustResult CheckCertificateIntegrity(const std::wstring& path) {
  return CheckCertificateIntegrity(systemTrustApi(), path);
}

TrustResult CheckCertificateIdentity(const std::wstring& path) {
  return CheckCertificateIdentity(systemTrustApi(), path, FetchCertificateProfile);
}

}  // namespace zarn
