// Whether a file was signed with one of the publisher's own certificates.
#pragma once

#include <cstdint>
#include <string>

#include "trust/trust_api.h"
#include "trust/trust_result.h"

namespace zarn {

/// The signer's certificate is not an approved one.
inline constexpr std::uint32_t kIdentityRefused = 30005;

/// Verified when the SHA-256 digest of the certificate that made the file's first
/// signature, as 64 lower-case hexadecimal digits, is an approved one. Refused
/// with kIdentityRefused when it is not, else with the Win32 error of the step
/// that failed. Says nothing about the signature itself: that is
/// CheckCertificateIntegrity(). `fetchProfile` is asked once, after the digest is
/// known; a check that fails before does not ask. The answer's signer is known from
/// the moment the certificate is found, and its subject is read without log lines.
IdentityResult CheckCertificateIdentity(TrustApi& api, const std::wstring& path,
                                        const ProfileSource& fetchProfile);

/// Why an answer is a refusal, in words that fit behind a colon: what failed, that the
/// profile was not to be had and why, or that it has not the signer. Not yet fit to be shown.
[[nodiscard]] std::string whyRefused(const IdentityResult& answer);

}  // namespace zarn
