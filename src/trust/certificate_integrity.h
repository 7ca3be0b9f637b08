// Whether the system accepts a file's embedded Authenticode signature.
#pragma once

#include <cstdint>
#include <string>

#include "trust/trust_api.h"
#include "trust/trust_result.h"

namespace zarn {

/// Verified when the file has a certificate table entry and the system's trust
/// provider accepts the signature: intact content, a chain to a trusted root, no
/// certificate of the chain revoked. Otherwise refused with the Win32 error of
/// the step that failed or with the provider's status. The file is held open
/// against writing while it is checked. May block on the network for revocation.
TrustResult CheckCertificateIntegrity(TrustApi& api, const std::wstring& path);

/// The same for who has another name for the file than the caller used: the log
/// shows `shownAs` in the place of `path`.
TrustResult CheckCertificateIntegrity(TrustApi& api, const std::wstring& path, const std::wstring& shownAs);

/// What the check logs and answers for a file that it cannot open, for who has tried
/// to open it in another way and failed with the Win32 error `error`.
TrustResult integrityOfUnopened(const std::wstring& path, SystemError error);

}  // namespace zarn
