// Variants of signed programs through the real check: it says "trusted" only where a second
// reader agrees, and about the same signer.
//
// Wine's provider is weaker than Windows': it compares the signed digest with nothing, hashes
// the file only where the content names the usual type, and takes every certificate that is
// signed with SHA-256. The first two are excused here, and counted; nothing is shown of chains.
#include <windows.h>
//
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
using Name = std::unique_ptr<ASN1_OBJECT, Releaser<ASN1_OBJECT_free>>;
using PublicKey = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
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

/// What an algorithm's identifier names; null for what is not known.
const EVP_MD* kindOf(std::optional<std::string_view> algorithm) {
  const auto name = algorithm ? takeElement(*algorithm, true) : std::nullopt;
  const auto* at = name ? reinterpret_cast<const unsigned char*>(name->data()) : nullptr;
  const Name read(name ? d2i_ASN1_OBJECT(nullptr, &at, static_cast<long>(name->size())) : nullptr);
  return read ? EVP_get_digestbyobj(read.get()) : nullptr;
}

void readContent(std::string_view content, std::string_view file, std::size_t directory,
                 SignatureReading& reading) {
  std::string_view parts = content;
  auto data = takeElement(parts);
  if (!data) return;
  const auto type = takeElement(*data);
  reading.isUsual = type && *type == std::string_view("\x2b\x06\x01\x04\x01\x82\x37\x02\x01\x0f", 10);
  auto info = takeElement(parts);
  const EVP_MD* const kind = info ? kindOf(takeElement(*info)) : nullptr;
  const auto digest = info ? takeElement(*info) : std::nullopt;
  const std::size_t checksum = numberIn(file, 0x3C, 4) + 88, table = numberIn(file, directory, 4);
  const std::size_t end = table + numberIn(file, directory + 4, 4);
  if (checksum + 4 > directory || directory + 8 > table || end > file.size()) return;
  reading.isOfFile =
      digest == digestOf(kind, {file.substr(0, checksum), file.substr(checksum + 4, directory - checksum - 4),
                                file.substr(directory + 8, table - directory - 8), file.substr(end)});
}

struct SignerCertificate {
  std::string_view whole;
  PublicKey key;
};

/// The certificate among them that has issuer and serial number as they stand there.
SignerCertificate certificateOf(std::string_view issuerAndSerial, std::string_view certificates) {
  const auto issuer = takeElement(issuerAndSerial, true), serial = takeElement(issuerAndSerial, true);
  while (const auto one = takeElement(certificates, true)) {
    std::string_view whole = *one;
    auto outer = takeElement(whole);
    auto inner = outer ? takeElement(*outer) : outer;
    // A version, the serial number, the algorithm, the issuer; then validity, subject and key.
    if (!inner || !takeElement(*inner) || takeElement(*inner, true) != serial || !takeElement(*inner) ||
        takeElement(*inner, true) != issuer || !takeElement(*inner) || !takeElement(*inner))
      continue;
    const auto* at = reinterpret_cast<const unsigned char*>(inner->data());
    return {*one, PublicKey(d2i_PUBKEY(nullptr, &at, static_cast<long>(inner->size())))};
  }
  return {};
}

/// The digest among the signed attributes.
std::string_view signedDigestIn(std::string_view attributes) {
  while (auto attribute = takeElement(attributes)) {
    if (takeElement(*attribute) != std::string_view("\x2a\x86\x48\x86\xf7\x0d\x01\x09\x04", 9)) continue;
    auto values = takeElement(*attribute);
    return values ? takeElement(*values).value_or("") : "";
  }
  return {};
}

bool isSignatureOf(const std::string& text, std::string_view signature, const EVP_MD* kind, EVP_PKEY* key) {
  const HashContext context(EVP_MD_CTX_new());
  const auto bytes = [](std::string_view of) { return reinterpret_cast<const unsigned char*>(of.data()); };
  return kind != nullptr && EVP_DigestVerifyInit(context.get(), nullptr, kind, nullptr, key) == 1 &&
         EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(text), text.size()) == 1;
}

void readSigner(std::string_view signer, std::string_view certificates, std::string_view content,
                SignatureReading& reading) {
  static_cast<void>(takeElement(signer));  // a version
  const auto who = takeElement(signer), algorithm = takeElement(signer), attributes = takeElement(signer);
  const auto scheme = takeElement(signer), signature = takeElement(signer);
  const SignerCertificate certificate = who ? certificateOf(*who, certificates) : SignerCertificate();
  if (!certificate.key || !attributes || !scheme || !signature) return;
  for (const char c : digestOf(EVP_sha256(), {certificate.whole})) {
    constexpr char digits[] = "0123456789abcdef";
    reading.signer += {digits[static_cast<unsigned char>(c) >> 4U], digits[c & 15]};
  }
  const EVP_MD* const kind = kindOf(algorithm);
  reading.hasSignedDigest = signedDigestIn(*attributes) == digestOf(kind, {content});
  // They are signed as a set, whose head differs from the one that they have here.
  std::string head = "\x31";
  const std::size_t length = attributes->size();
  if (length >= 256)
    head += "\x82";
  else if (length >= 128)
    head += "\x81";
  if (length >= 256) head += static_cast<char>(length >> 8U);
  head += static_cast<char>(length);
  reading.isSigned = isSignatureOf(head + std::string(*attributes), *signature, kind, certificate.key.get());
}

/// By lengths alone: what is not looked at may be anything, as for the system's provider.
SignatureReading readSignature(std::string_view file) {
  SignatureReading reading;
  const std::size_t header = numberIn(file, 0x3C, 4) + 24;
  const std::size_t directory = header + (numberIn(file, header, 2) == 0x20B ? 112 : 96) + 32;
  const std::size_t table = numberIn(file, directory, 4), length = numberIn(file, table, 4);
  if (length < 8 || table + length > file.size()) return reading;
  std::string_view outer = file.substr(table + 8, length - 8);
  auto message = takeElement(outer);
  auto tagged = message && takeElement(*message) ? takeElement(*message) : std::nullopt;
  auto parts = tagged ? takeElement(*tagged) : std::nullopt;
  if (!parts || !takeElement(*parts) || !takeElement(*parts)) return reading;  // a version, algorithms
  auto contents = takeElement(*parts);
  const auto certificates = takeElement(*parts);
  auto signers = takeElement(*parts);
  auto whole = contents && takeElement(*contents) ? takeElement(*contents) : std::nullopt;
  const auto content = whole ? takeElement(*whole) : std::nullopt;
  const auto signer = signers ? takeElement(*signers) : std::nullopt;
  if (!certificates || !content || !signer) return reading;
  readContent(*content, file, directory, reading);
  readSigner(*signer, *certificates, *content, reading);
  return reading;
}

/// Said at the end, since what is excused must not hide that nothing was compared.
struct Counts {
  ~Counts() {
    std::printf(
        "signed_program: %d trusted, of these %d with a signed digest of something else and %d of no usual "
        "type, "
        "which Wine does not look at; %d more that it took and whose signer was not approved\n",
        trusted, otherDigest, unusual, refused);
  }
  int judged = 0, trusted = 0, otherDigest = 0, unusual = 0, refused = 0;
};

void judgeSigned(const std::string& program) {
  static Counts counts;
  static const std::string approved = readSignature(program).signer;  // the first one is as it was signed
  static const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("fuzzed" + std::to_string(GetCurrentProcessId()) + ".exe");
  std::ofstream(path, std::ios::binary) << program;
  zarn::TrustApi& api = zarn::systemTrustApi();
  const bool isWhole = CheckCertificateIntegrity(api, path.wstring()).isVerified();
  require(++counts.judged > 1 || isWhole);
  if (!isWhole) return;
  const auto identity =
      CheckCertificateIdentity(api, path.wstring(), [] { return zarn::ApprovedDigests{approved}; });
  if (!identity.result.isVerified()) return static_cast<void>(++counts.refused);
  const SignatureReading reading = readSignature(program);
  require(reading.isSigned && reading.signer == approved && identity.signer->digest == approved);
  require(reading.isOfFile || !reading.isUsual);
  ++counts.trusted;
  counts.otherDigest += reading.hasSignedDigest ? 0 : 1;
  counts.unusual += reading.isUsual ? 0 : 1;
}

const zarn::fuzz::Target kSigned("signed_program", judgeSigned);

}  // namespace
