// Whether a file was signed with one of the publisher's own certificates.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

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

/// An attribute of a certificate's subject.
struct SubjectField {
  const char* oid;
  const char* label;  ///< in a distinguished name
  const char* words;
};
inline constexpr SubjectField kSubjectFields[] = {{"2.5.4.3", "CN", "Common Name"},
                                                  {"2.5.4.10", "O", "Organization Name"},
                                                  {"2.5.4.7", "L", "Locality Name"},
                                                  {"2.5.4.8", "S", "State Name"},
                                                  {"2.5.4.6", "C", "Country Name"}};

/// Two lower-case hexadecimal digits for each byte.
[[nodiscard]] std::string digestText(std::span<const std::uint8_t> digest);

/// The digest's bytes; empty when the provider fails, which is logged.
[[nodiscard]] std::vector<std::uint8_t> HashCertificateSha256(const Certificate& certificate);

/// The first attribute `oid` of the certificate's subject, UTF-8; empty when the
/// provider fails, which is logged. The certificate's author chose the text.
[[nodiscard]] std::string GetCertNameAttribute(const Certificate& certificate, const char* oid);

}  // namespace zarn
