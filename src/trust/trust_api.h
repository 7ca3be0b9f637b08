// The calls of the operating system that the trust checks are made of, one
// operation a call, so that tests can fail each of them. trust_api_win.cpp holds
// the real ones.
//
// Objects release what they stand for when they are destroyed. Nothing here is
// shared between threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "os/system_error.h"

namespace zarn {

/// A file held open for reading, which keeps others from writing to it.
class SignedFile {
 public:
  virtual ~SignedFile() = default;

  /// ImageGetCertificateHeader of the first entry in the file's certificate
  /// table: the length in bytes that the entry claims to have; 0 for a table that
  /// certificate_table.h refuses, which no parser is shown.
  [[nodiscard]] virtual Result<std::uint32_t> certificateLength() = 0;

  /// ImageGetCertificateData of the same entry, which claims `length` bytes; fails
  /// for a refused table. The data is kept as long as this object.
  [[nodiscard]] virtual Result<void> readCertificate(std::uint32_t length) = 0;
};

/// A certificate context.
class Certificate {
 public:
  virtual ~Certificate() = default;

  /// CryptHashCertificate, SHA-256 of the encoded certificate. Answers the size in
  /// bytes, never 0, of what was written, or, without a buffer, would need to be.
  [[nodiscard]] virtual Result<std::uint32_t> sha256(std::span<std::uint8_t> buffer) const = 0;

  /// CertGetNameStringW of the subject's attribute with the dotted identifier
  /// `oid`. Answers the length in wide characters, never 0, since the terminator
  /// counts, of what was written, or, without a buffer, would need to be.
  [[nodiscard]] virtual Result<std::uint32_t> subjectAttribute(const char* oid,
                                                               std::span<wchar_t> buffer) const = 0;
};

/// The signature embedded in a file: its message and the certificates it carries.
class EmbeddedSignature {
 public:
  virtual ~EmbeddedSignature() = default;

  /// CryptMsgGetParam for the information on signer 0. Answers the size in bytes of
  /// what was written, or, without a buffer, would need to be.
  [[nodiscard]] virtual Result<std::uint32_t> signerInfo(std::span<std::byte> buffer) const = 0;

  /// CertFindCertificateInStore: the carried certificate with the issuer and the
  /// serial number that `signer`, filled by signerInfo(), names; never null. The
  /// certificate must not outlive this signature.
  [[nodiscard]] virtual Result<std::unique_ptr<Certificate>> findCertificate(
      std::span<const std::byte> signer) const = 0;
};

class TrustApi {
 public:
  virtual ~TrustApi() = default;

  /// CreateFileW, with a limit on the time that it may take. Never null.
  [[nodiscard]] virtual Result<std::unique_ptr<SignedFile>> openFile(const std::wstring& path) = 0;

  /// WinVerifyTrust: whole chain, revocation included, no user interface. 0 means
  /// trusted; any other status is the provider's reason. The thread's last error is
  /// then as the provider left it, because the log shows it beside the status.
  [[nodiscard]] virtual std::int32_t verifyTrust(const std::wstring& path) = 0;

  /// CryptQueryObject for the file's embedded signature, with a limit on the time.
  /// A file whose certificate table is missing or refused is not shown to it. Never null.
  [[nodiscard]] virtual Result<std::unique_ptr<EmbeddedSignature>> querySignature(
      const std::wstring& path) = 0;
};

/// The operating system's own. Stateless: may be used from any thread.
[[nodiscard]] TrustApi& systemTrustApi();

}  // namespace zarn
