#include "trust/certificate_identity.h"

#include <iomanip>
#include <sstream>

#include "trust/wide_text.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {
namespace {

std::string digestText(const std::vector<std::uint8_t>& digest) {
  std::ostringstream text;
  text << std::hex << std::setfill('0');
  for (const std::uint8_t byte : digest) text << std::setw(2) << static_cast<unsigned>(byte);
  return text.str();
}

void logSubject(const Certificate& certificate) {
  const auto attribute = [&](const char* oid) { return printable(GetCertNameAttribute(certificate, oid)); };
  logLine(LogLevel::Debug, "Certificate Common Name: %s", attribute("2.5.4.3"));
  logLine(LogLevel::Debug, "Certificate Organization Name: %s", attribute("2.5.4.10"));
  logLine(LogLevel::Debug, "Certificate Locality Name: %s", attribute("2.5.4.7"));
  logLine(LogLevel::Debug, "Certificate State Name: %s", attribute("2.5.4.8"));
  logLine(LogLevel::Debug, "Certificate Country Name: %s", attribute("2.5.4.6"));
}

}  // namespace

TrustResult CheckCertificateIdentity(TrustApi& api, const std::wstring& path,
                                     const ProfileSource& fetchProfile) {
  const auto signature = api.querySignature(path);
  if (!signature) return TrustResult::refused(logWin32Error(LogLevel::Debug, "CryptQueryObject() failed"));

  std::uint32_t size = 0;
  if (!signature->signerInfo(nullptr, size)) {
    return TrustResult::refused(logWin32Error(LogLevel::Debug, "CryptMsgGetParm() (Getting Size) failed"));
  }
  std::unique_ptr<Certificate> certificate;  // released after the signer information that found it
  std::vector<std::byte> signer(size);
  if (!signature->signerInfo(signer.data(), size)) {
    return TrustResult::refused(logWin32Error(LogLevel::Debug, "CryptMsgGetParm() failed"));
  }
  certificate = signature->findCertificate(signer);
  if (!certificate) {
    return TrustResult::refused(logWin32Error(LogLevel::Debug, "CertFindCertificateInStore failed"));
  }

  const std::string digest = digestText(HashCertificateSha256(*certificate));
  const std::set<std::string> approved = fetchProfile();
  // A failed digest is empty text, and a malformed profile can hold empty text too.
  if (!digest.empty() && approved.contains(digest)) {
    logLine(LogLevel::Debug, "Certificate identity verified");
    return TrustResult::verified();
  }
  logLine(LogLevel::Debug, "Certificate hash: %s", digest);
  logSubject(*certificate);
  logLine(LogLevel::Error, "Certificate couldn't be verified");
  return TrustResult::refused(kIdentityRefused);
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
  return utf8FromWide(text);
}

}  // namespace zarn
