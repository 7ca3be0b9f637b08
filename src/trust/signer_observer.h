// Tells who signed a file, from the calls that the identity check makes anyway.
//
//   SignerObserver observer(systemTrustApi());
//   const TrustResult result = CheckCertificateIdentity(observer, path, FetchCertificateProfile);
//   if (observer.signer()) { /* observer.signer()->digest is what was looked up */ }
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "trust/trust_api.h"

namespace zarn {

struct ObservedSigner {
  /// SHA-256 of the certificate, 64 lower-case hexadecimal digits; empty when it could not be had.
  std::string digest;
  /// "CN=..., O=..., L=..., S=..., C=...", UTF-8, without what the subject lacks.
  /// The certificate's author chose the texts.
  std::string subject;
};

/// Passes every call on to `real`, which must outlive it, and every answer back
/// unchanged. Writes no log lines. For one check on one thread.
class SignerObserver final : public TrustApi {
 public:
  explicit SignerObserver(TrustApi& real) noexcept : real_(real) {}

  [[nodiscard]] std::unique_ptr<SignedFile> openFile(const std::wstring& path) override;
  [[nodiscard]] std::int32_t verifyTrust(const std::wstring& path) override;
  [[nodiscard]] std::unique_ptr<EmbeddedSignature> querySignature(const std::wstring& path) override;

  /// Nothing before a check has found the certificate.
  [[nodiscard]] const std::optional<ObservedSigner>& signer() const noexcept { return signer_; }

 private:
  TrustApi& real_;
  std::optional<ObservedSigner> signer_;
};

}  // namespace zarn
