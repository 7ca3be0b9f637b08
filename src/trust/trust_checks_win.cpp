#include "trust/certificate_integrity.h"

namespace zarn {

TrustResult CheckCertificateIntegrity(const std::wstring& path) {
  return CheckCertificateIntegrity(systemTrustApi(), path);
}

}  // namespace zarn
