// Variants of signed programs through the real check: it says "trusted" only where a second
// reader agrees, and about the same signer.
//
// Wine's provider is weaker than Windows': it compares the signed digest with nothing, hashes
// the file only where the content names the usual type, and takes every certificate that is
// signed with SHA-256. The first two are excused here, and counted; nothing is shown of chains.
#include <windows.h>
//
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "fuzz.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/trust_api.h"

namespace {

using zarn::fuzz::require;

template <auto release>
struct Releaser {
  template <typename T>
  void operator()(T* object) const {
    release(object);
  }
};
using Message = std::unique_ptr<PKCS7, Releaser<PKCS7_free>>;
using DigestInfo = std::unique_ptr<X509_SIG, Releaser<X509_SIG_free>>;
using HashContext = std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>>;

/// What the second reader finds: each is false where it cannot tell.
struct SignatureReading {
  bool isSigned = false;         ///< signer 0's signature over what it signs
  bool hasSignedDigest = false;  ///< which is that of the content
  bool isUsual = false;          ///< the content is of the usual type
  bool isOfFile = false;         ///< the content has the digest of the file
  std::string signer;            ///< SHA-256 of signer 0's certificate
};

std::size_t numberIn(std::string_view file, std::size_t at, std::size_t size) {
  std::size_t number = 0;
  for (std::size_t i = size; i-- > 0;)
    number = number << 8U | (at + i < file.size() ? std::uint8_t(file[at + i]) : 0U);
  return number;
}

std::string digestOf(const EVP_MD* kind, std::initializer_list<std::string_view> parts) {
  const HashContext context(EVP_MD_CTX_new());
  std::string digest(EVP_MAX_MD_SIZE, '\0');
  unsigned size = 0;
  if (kind == nullptr || EVP_DigestInit_ex(context.get(), kind, nullptr) != 1) return {};
  for (const std::string_view part : parts) EVP_DigestUpdate(context.get(), part.data(), part.size());
  EVP_DigestFinal_ex(context.get(), reinterpret_cast<unsigned char*>(digest.data()), &size);
  digest.resize(size);
  return digest;
}

const EVP_MD* kindOf(const X509_ALGOR* algorithm) {
  return EVP_get_digestbyobj(algorithm->algorithm);
}

std::string_view bytesOf(const ASN1_STRING* text) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
          static_cast<std::size_t>(ASN1_STRING_length(text))};
}

/// Takes an element off the text; its content is all of it that is left out.
std::optional<std::string_view> takeElement(std::string_view& text, bool withHead = false) {
  const auto* const begin = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* at = begin;
  long length = 0;
  int tag = 0, kind = 0;
  if ((ASN1_get_object(&at, &length, &tag, &kind, static_cast<long>(text.size())) & 0x80) != 0)
    return std::nullopt;
  const auto head = static_cast<std::size_t>(at - begin), size = head + static_cast<std::size_t>(length);
  const std::string_view element = text.substr(withHead ? 0 : head, withHead ? size : size - head);
  text.remove_prefix(size);
  return element;
}

void readContent(std::string_view content, std::string_view file, std::size_t directory,
                 SignatureReading& reading) {
  std::string_view parts = content;
  auto data = takeElement(parts);
  if (!data) return;
  const auto type = takeElement(*data);
  reading.isUsual = type && *type == std::string_view("\x2b\x06\x01\x04\x01\x82\x37\x02\x01\x0f", 10);
  const auto* at = reinterpret_cast<const unsigned char*>(parts.data());
  const DigestInfo info(d2i_X509_SIG(nullptr, &at, static_cast<long>(parts.size())));
  if (!info) return;
  const X509_ALGOR* algorithm = nullptr;
  const ASN1_OCTET_STRING* digest = nullptr;
  X509_SIG_get0(info.get(), &algorithm, &digest);
  const std::size_t checksum = numberIn(file, 0x3C, 4) + 88, table = numberIn(file, directory, 4);
  const std::size_t end = table + numberIn(file, directory + 4, 4);
  if (checksum + 4 > directory || directory + 8 > table || end > file.size()) return;
  reading.isOfFile = bytesOf(digest) ==
                     digestOf(kindOf(algorithm),
                              {file.substr(0, checksum), file.substr(checksum + 4, directory - checksum - 4),
                               file.substr(directory + 8, table - directory - 8), file.substr(end)});
}

void readSigner(PKCS7& message, std::string_view content, SignatureReading& reading) {
  auto* const signers = PKCS7_get_signer_info(&message);
  PKCS7_SIGNER_INFO* const signer = sk_PKCS7_SIGNER_INFO_value(signers, 0);
  X509* const certificate = signer == nullptr ? nullptr : PKCS7_cert_from_signer_info(&message, signer);
  if (certificate == nullptr) return;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  X509_digest(certificate, EVP_sha256(), digest, &size);
  for (unsigned i = 0; i < size; ++i) {
    constexpr char digits[] = "0123456789abcdef";
    reading.signer += {digits[digest[i] >> 4U], digits[digest[i] & 15U]};
  }
  const EVP_MD* const kind = kindOf(signer->digest_alg);
  const ASN1_OCTET_STRING* const said = PKCS7_digest_from_attributes(signer->auth_attr);
  reading.hasSignedDigest = said != nullptr && bytesOf(said) == digestOf(kind, {content});
  unsigned char* encoded = nullptr;
  const int length = ASN1_item_i2d(reinterpret_cast<const ASN1_VALUE*>(signer->auth_attr), &encoded,
                                   ASN1_ITEM_rptr(PKCS7_ATTR_VERIFY));
  const HashContext context(EVP_MD_CTX_new());
  const std::string_view signature = bytesOf(signer->enc_digest);
  reading.isSigned =
      kind != nullptr && length > 0 &&
      EVP_DigestVerifyInit(context.get(), nullptr, kind, nullptr, X509_get0_pubkey(certificate)) == 1 &&
      EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char*>(signature.data()),
                       signature.size(), encoded, static_cast<std::size_t>(length)) == 1;
  OPENSSL_free(encoded);
}

SignatureReading readSignature(std::string_view file) {
  SignatureReading reading;
  const std::size_t header = numberIn(file, 0x3C, 4) + 24;
  const std::size_t directory = header + (numberIn(file, header, 2) == 0x20B ? 112 : 96) + 32;
  const std::size_t table = numberIn(file, directory, 4), length = numberIn(file, table, 4);
  if (length < 8 || table + length > file.size()) return reading;
  const auto* at = reinterpret_cast<const unsigned char*>(file.data()) + table + 8;
  const Message message(d2i_PKCS7(nullptr, &at, static_cast<long>(length - 8)));
  if (!message || !PKCS7_type_is_signed(message.get())) return reading;
  const PKCS7* const contents = message->d.sign->contents;
  if (contents == nullptr || contents->d.other == nullptr || contents->d.other->type != V_ASN1_SEQUENCE)
    return reading;
  std::string_view whole = bytesOf(contents->d.other->value.sequence);
  const auto content = takeElement(whole);
  if (!content) return reading;
  readContent(*content, file, directory, reading);
  readSigner(*message, *content, reading);
  return reading;
}

/// Said at the end, since what is excused must not hide that nothing was compared.
struct Counts {
  ~Counts() {
    std::printf(
        "signed_program: %d trusted, of these %d with a signed digest of something else and %d of no usual "
        "type, which this system's provider does not look at\n",
        trusted, otherDigest, unusual);
  }
  int judged = 0, trusted = 0, otherDigest = 0, unusual = 0;
};

void judgeSigned(const std::string& program) {
  static Counts counts;
  static const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("fuzzed" + std::to_string(GetCurrentProcessId()) + ".exe");
  std::ofstream(path, std::ios::binary) << program;
  const bool isTrusted = CheckCertificateIntegrity(zarn::systemTrustApi(), path.wstring()).isVerified();
  counts.trusted += isTrusted ? 1 : 0;
  require(++counts.judged != 1 || isTrusted);  // the first is as it was signed
  if (!isTrusted) return;
  const SignatureReading reading = readSignature(program);
  require(reading.isSigned && (reading.isOfFile || !reading.isUsual || !reading.hasSignedDigest));
  counts.otherDigest += reading.hasSignedDigest ? 0 : 1;
  counts.unusual += reading.isUsual ? 0 : 1;
  const auto approve = [&] { return zarn::ApprovedDigests{reading.signer}; };
  const auto identity = CheckCertificateIdentity(zarn::systemTrustApi(), path.wstring(), approve);
  require(identity.result.isVerified() && identity.signer && identity.signer->digest == reading.signer);
}

const zarn::fuzz::Target kSigned("signed_program", judgeSigned);

}  // namespace
