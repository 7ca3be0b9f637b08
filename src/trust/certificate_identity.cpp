#include "trust/certificate_identity.h"

#include <fmt/format.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "os/error_text.h"
#include "util/log_win32_error.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

/// An attribute of a certificate's subject.
struct SubjectField {
  const char* oid;
  const char* label;  ///< in a distinguished name
  const char* words;  ///< in the log
};
constexpr SubjectField kSubjectFields[] = {{"2.5.4.3", "CN", "Common Name"},
                                           {"2.5.4.10", "O", "Organization Name"},
                                           {"2.5.4.7", "L", "Locality Name"},
                                           {"2.5.4.8", "S", "State Name"},
                                           {"2.5.4.6", "C", "Country Name"}};

/// A call of the system that failed, in the words of its log line.
struct FailedCall {
  SystemError error;
  const char* message;
};

std::uint32_t logFailedCall(const FailedCall& failed) {
  return logSystemFailure(LogLevel::Debug, failed.error, "%s", failed.message);
}

/// The certificate among those that the signature carries that made it: others may
/// be carried along by anybody, so it is found by what the first signer says.
tl::expected<std::unique_ptr<Certificate>, FailedCall> findSignersCertificate(
    const EmbeddedSignature& signature) {
  const auto size = signature.signerInfo({});
  if (!size) return tl::unexpected(FailedCall{size.error(), "CryptMsgGetParm() (Getting Size) failed"});
  std::vector<std::byte> signer(*size);
  if (const auto read = signature.signerInfo(signer); !read) {
    return tl::unexpected(FailedCall{read.error(), "CryptMsgGetParm() failed"});
  }
  auto found = signature.findCertificate(signer);
  if (!found) return tl::unexpected(FailedCall{found.error(), "CertFindCertificateInStore failed"});
  return std::move(*found);
}

/// Two lower-case hexadecimal digits for each byte.
std::string digestText(std::span<const std::uint8_t> digest) {
  return fmt::format("{:02x}", fmt::join(digest, ""));
}

/// Empty when the provider fails, which is logged.
std::vector<std::uint8_t> HashCertificateSha256(const Certificate& certificate) {
  const auto size = certificate.sha256({});
  if (!size) {
    logFailedCall({size.error(), "CryptHashCertificate() (calculating output size) failed"});
    return {};
  }
  std::vector<std::uint8_t> digest(*size);
  const auto written = certificate.sha256(digest);
  if (!written) {
    logFailedCall({written.error(), "CryptHashCertificate() failed"});
    return {};
  }
  digest.resize(*written);
  return digest;
}

/// The first attribute `oid` of the certificate's subject, UTF-8. The certificate's
/// author chose the text.
tl::expected<std::string, FailedCall> readAttribute(const Certificate& certificate, const char* oid) {
  const auto length = certificate.subjectAttribute(oid, {});
  if (!length) return tl::unexpected(FailedCall{length.error(), "CertGetNameStringW() (Get size) failed"});
  std::wstring text(*length, L'\0');
  if (const auto read = certificate.subjectAttribute(oid, text); !read) {
    return tl::unexpected(FailedCall{read.error(), "CertGetNameString() failed"});
  }
  text.pop_back();  // the terminator
  return StringUtils::utf16to8(text);
}

/// The same for the log: empty when the provider fails, which is logged.
std::string GetCertNameAttribute(const Certificate& certificate, const char* oid) {
  auto text = readAttribute(certificate, oid);
  if (text) return std::move(*text);
  logFailedCall(text.error());
  return {};
}

/// For the record, which names approved signers too, of whom the log says nothing:
/// what cannot be read is left out without a line.
std::string subjectOf(const Certificate& certificate) {
  std::string subject;
  for (const auto& [oid, label, words] : kSubjectFields) {
    const auto text = readAttribute(certificate, oid);
    if (!text || text->empty()) continue;
    subject += (subject.empty() ? "" : ", ") + std::string(label) + "=" + *text;
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
  if (!signature) {
    return {TrustResult::refused(logFailedCall({signature.error(), "CryptQueryObject() failed"}))};
  }
  const auto found = findSignersCertificate(**signature);
  if (!found) return {TrustResult::refused(logFailedCall(found.error()))};
  const Certificate& certificate = **found;

  IdentityResult answer{TrustResult::refused(kIdentityRefused)};
  answer.signer.emplace().subject = subjectOf(certificate);
  const std::string& digest = answer.signer->digest = digestText(HashCertificateSha256(certificate));
  // Asked last: nobody asks the account service about a file without a signer.
  const ProfileAnswer approved = fetchProfile();
  answer.profile = approved ? ProfileState::Had : ProfileState::NotHad;
  answer.approvedDigests = approved ? approved->size() : 0;
  if (!approved) answer.whyNotHad = approved.error().reason;
  // A failed digest is empty text, and a malformed profile can hold empty text too.
  if (approved && !digest.empty() && approved->contains(digest)) {
    logLine(LogLevel::Debug, "Certificate identity verified");
    answer.result = TrustResult::verified();
    return answer;
  }
  logLine(LogLevel::Debug, "Certificate hash: %s", digest);
  logSubject(certificate);
  logLine(LogLevel::Error, "Certificate couldn't be verified");
  return answer;
}

std::string whyRefused(const IdentityResult& answer) {
  switch (answer.profile) {
    case ProfileState::NotAsked:
      break;
    case ProfileState::NotHad:
      return "the list of approved certificates could not be had: " + answer.whyNotHad;
    case ProfileState::Had:
      return "the signer's certificate is not on the list of approved ones";
  }
  return describeSystemError(static_cast<std::uint32_t>(answer.result.code()));
}

}  // namespace zarn
