// The calls of the operating system that the trust checks are made of, one
// operation a call, so that tests can fail each of them. trust_api_win.cpp holds
// the real ones.
//
// A failed operation answers null, nothing, false or 0 and leaves its reason in
// the thread's last error (util/system_error.h), where the caller must look
// before it does anything else; the reason may be 0. Objects release what they
// stand for when they are destroyed. Nothing here is shared between threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace zarn {

/// A file held open for reading, which keeps others from writing to it.
class SignedFile {
 public:
  virtual ~SignedFile() = default;

  /// ImageGetCertificateHeader of the first entry in the file's certificate
  /// table: the length in bytes that the entry claims to have; 0 for a table that
  /// certificate_table.h refuses, which no parser is shown.
  [[nodiscard]] virtual std::optional<std::uint32_t> certificateLength() = 0;

  /// ImageGetCertificateData of the same entry, which claims `length` bytes; fails
  /// for a refused table. The data is kept as long as this object.
  [[nodiscard]] virtual bool readCertificate(std::uint32_t length) = 0;
};

/// A certificate context.
class Certificate {
 public:
  virtual ~Certificate() = default;

  /// CryptHashCertificate, SHA-256 of the encoded certificate. Without a buffer,
  /// `size` becomes the size needed; with one of `size` bytes, the size written.
  [[nodiscard]] virtual bool sha256(std::uint8_t* buffer, std::uint32_t& size) const = 0;

  /// CertGetNameStringW of the subject's attribute with the dotted identifier
  /// `oid`. Answers the length in wide characters, the terminator included, of
  /// what was written to the buffer or would need to be.
  [[nodiscard]] virtual std::uint32_t subjectAttribute(const char* oid, wchar_t* buffer,
                                                       std::uint32_t size) const = 0;
};

/// The signature embedded in a file: its message and the certificates it carries.
class EmbeddedSignature {
 public:
  virtual ~EmbeddedSignature() = default;

  /// CryptMsgGetParam for the information on signer 0. Without a buffer, `size`
  /// becomes the size needed; with one of `size` bytes, the size written.
  [[nodiscard]] virtual bool signerInfo(std::byte* buffer, std::uint32_t& size) const = 0;

  /// CertFindCertificateInStore: the carried certificate with the issuer and the
  /// serial number that `signer`, filled by signerInfo(), names. The certificate
  /// must not outlive this signature.
  [[nodiscard]] virtual std::unique_ptr<Certificate> findCertificate(
      std::span<const std::byte> signer) const = 0;
};

class TrustApi {
 public:
  virtual ~TrustApi() = default;

  /// CreateFileW, with a limit on the time that it may take.
  [[nodiscard]] virtual std::unique_ptr<SignedFile> openFile(const std::wstring& path) = 0;

  /// WinVerifyTrust: whole chain, revocation included, no user interface. 0 means
  /// trusted; any other status is the provider's reason.
  [[nodiscard]] virtual std::int32_t verifyTrust(const std::wstring& path) = 0;

  /// CryptQueryObject for the file's embedded signature, with a limit on the time.
  /// A file whose certificate table is missing or refused is not shown to it.
  [[nodiscard]] virtual std::unique_ptr<EmbeddedSignature> querySignature(const std::wstring& path) = 0;
};

/// The operating system's own. Stateless: may be used from any thread.
[[nodiscard]] TrustApi& systemTrustApi();

}  // namespace zarn
