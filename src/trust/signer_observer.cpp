#include "trust/signer_observer.h"

#include <span>
#include <utility>

#include "trust/certificate_identity.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

std::string subjectOf(const Certificate& certificate) {
  std::string subject;
  for (const auto& [oid, label, words] : kSubjectFields) {
    const std::uint32_t length = certificate.subjectAttribute(oid, nullptr, 0);
    std::wstring text(length, L'\0');
    if (length < 2 || certificate.subjectAttribute(oid, text.data(), length) == 0) continue;
    text.resize(length - 1);
    subject += (subject.empty() ? "" : ", ") + std::string(label) + "=" + StringUtils::utf16to8(text);
  }
  return subject;
}

class ObservedCertificate final : public Certificate {
 public:
  ObservedCertificate(std::unique_ptr<Certificate> real, ObservedSigner& signer)
      : real_(std::move(real)), signer_(signer) {}

  bool sha256(std::uint8_t* buffer, std::uint32_t& size) const override {
    const bool succeeded = real_->sha256(buffer, size);
    if (succeeded && buffer != nullptr) signer_.digest = digestText({buffer, size});
    return succeeded;
  }

  std::uint32_t subjectAttribute(const char* oid, wchar_t* buffer, std::uint32_t size) const override {
    return real_->subjectAttribute(oid, buffer, size);
  }

 private:
  std::unique_ptr<Certificate> real_;
  ObservedSigner& signer_;
};

class ObservedSignature final : public EmbeddedSignature {
 public:
  ObservedSignature(std::unique_ptr<EmbeddedSignature> real, std::optional<ObservedSigner>& signer)
      : real_(std::move(real)), signer_(signer) {}

  bool signerInfo(std::byte* buffer, std::uint32_t& size) const override {
    return real_->signerInfo(buffer, size);
  }

  std::unique_ptr<Certificate> findCertificate(std::span<const std::byte> signer) const override {
    auto certificate = real_->findCertificate(signer);
    if (!certificate) return nullptr;
    ObservedSigner& observed = signer_.emplace();
    observed.subject = subjectOf(*certificate);
    return std::make_unique<ObservedCertificate>(std::move(certificate), observed);
  }

 private:
  std::unique_ptr<EmbeddedSignature> real_;
  std::optional<ObservedSigner>& signer_;
};

}  // namespace

std::unique_ptr<SignedFile> SignerObserver::openFile(const std::wstring& path) {
  return real_.openFile(path);
}

std::int32_t SignerObserver::verifyTrust(const std::wstring& path) {
  return real_.verifyTrust(path);
}

std::unique_ptr<EmbeddedSignature> SignerObserver::querySignature(const std::wstring& path) {
  auto signature = real_.querySignature(path);
  if (!signature) return nullptr;
  return std::make_unique<ObservedSignature>(std::move(signature), signer_);
}

}  // namespace zarn
