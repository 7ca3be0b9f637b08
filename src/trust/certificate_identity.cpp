#include "trust/certificate_identity.h"

#include <fmt/format.h>

#include <cstddef>
#include <memory>

#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

/// Without log lines, as the record wants it also when all is well.
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

void logSubject(const Certificate& certificate) {
  for (const SubjectField& field : kSubjectFields) {
    logLine(LogLevel::Debug, "Certificate %s: %s", field.words,
            printable(GetCertNameAttribute(certificate, field.oid)));
  }
}

}  // namespace

IdentityResult CheckCertificateIdentity(TrustApi& api, const std::wstring& path,
                                        const ProfileSource& fetchProfile) {
  const auto signature = api.querySignature(path);
  if (!signature) return {TrustResult::refused(logWin32Error(LogLevel::Debug, "CryptQueryObject() failed"))};

  std::uint32_t size = 0;
  if (!signature->signerInfo(nullptr, size)) {
    return {TrustResult::refused(logWin32Error(LogLevel::Debug, "CryptMsgGetParm() (Getting Size) failed"))};
  }
  std::unique_ptr<Certificate> certificate;  // released after the signer information that found it
  std::vector<std::byte> signer(size);
  if (!signature->signerInfo(signer.data(), size)) {
    return {TrustResult::refused(logWin32Error(LogLevel::Debug, "CryptMsgGetParm() failed"))};
  }
  certificate = signature->findCertificate(signer);
  if (!certificate) {
    return {TrustResult::refused(logWin32Error(LogLevel::Debug, "CertFindCertificateInStore failed"))};
  }

  IdentityResult answer{TrustResult::refused(kIdentityRefused)};
  answer.signer.emplace().subject = subjectOf(*certificate);
  const std::string& digest = answer.signer->digest = digestText(HashCertificateSha256(*certificate));
  const std::optional<ApprovedDigests> approved = fetchProfile();
  answer.profile = approved ? ProfileState::Had : ProfileState::NotHad;
  answer.approvedDigests = approved ? approved->size() : 0;
  // A failed digest is empty text, and a malformed profile can hold empty text too.
  if (approved && !digest.empty() && approved->contains(digest)) {
    logLine(LogLevel::Debug, "Certificate identity verified");
    answer.result = TrustResult::verified();
    return answer;
  }
  logLine(LogLevel::Debug, "Certificate hash: %s", digest);
  logSubject(*certificate);
  logLine(LogLevel::Error, "Certificate couldn't be verified");
  return answer;
}

std::string digestText(std::span<const std::uint8_t> digest) {
  return fmt::format("{:02x}", fmt::join(digest, ""));
}

std::vector<std::uint8_t> HashCertificateSha256(const Certificate& certificate) {
  std::uint32_t size = 0;
  if (!certificate.sha256(nullptr, size)) {
    logWin32Error(LogLevel::Debug, "CryptHashCertificate() (calculating output size) failed");
    return {};
  }
  std::vector<std::uint8_t> digest(size);
  if (digest.empty() || !certificate.sha256(digest.data(), size)) {
    logWin32Error(LogLevel::Debug, "CryptHashCertificate() failed");
    return {};
  }
  digest.resize(size);
  return digest;
}

std::string GetCertNameAttribute(const Certificate& certificate, const char* oid) {
  const std::uint32_t length = certificate.subjectAttribute(oid, nullptr, 0);
  if (length == 0) {
    logWin32Error(LogLevel::Debug, "CertGetNameStringW() (Get size) failed");
    return {};
  }
  std::wstring text(length, L'\0');
  if (certificate.subjectAttribute(oid, text.data(), length) == 0) {
    logWin32Error(LogLevel::Debug, "CertGetNameString() failed");
    return {};
  }
  text.resize(length - 1);
  return StringUtils::utf16to8(text);
}

}  // namespace zarn
