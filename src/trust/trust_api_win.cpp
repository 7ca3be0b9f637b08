#include "trust/trust_api_win.h"

#include <imagehlp.h>
#include <softpub.h>
#include <wincrypt.h>

#include <chrono>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "os/handles_win.h"
#include "trust/certificate_table.h"
#include "trust/trust_api.h"
#include "util/io_deadline.h"

namespace zarn {
namespace {

// The numbers that the checks rest on, whatever the headers call them. The file is
// opened with these and, against pipes, with the anonymous level.
constexpr DWORD kOpenFlags = FILE_FLAG_RANDOM_ACCESS | FILE_ATTRIBUTE_NORMAL;
static_assert(kOpenFlags == 0x10000080);
static_assert(CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED == 0x400 && CERT_QUERY_FORMAT_FLAG_BINARY == 2);
static_assert(CERT_FIND_SUBJECT_CERT == 0xB0000 && CALG_SHA_256 == 0x800C && CERT_NAME_ATTR_TYPE == 3);

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr DWORD kFirstCertificate = 0;
constexpr DWORD kFirstSigner = 0;

// Room beyond the length that a certificate table entry claims.
constexpr std::size_t kCertificateHeadroomBytes = 12;

struct MessageTraits {
  using Handle = HCRYPTMSG;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { CryptMsgClose(handle); }
};

struct StoreTraits {
  using Handle = HCERTSTORE;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { CertCloseStore(handle, 0); }
};

struct CertificateTraits {
  using Handle = PCCERT_CONTEXT;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { CertFreeCertificateContext(handle); }
};

/// Does `operation`, which reads a file that others chose, under a deadline.
template <typename Operation>
auto within(std::chrono::milliseconds limit, const Operation& operation) {
  const IoDeadline deadline(limit);
  return operation();
}

Result<FileHandle> openForChecks(const std::wstring& path) {
  FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              kOpenFlags | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, nullptr));
  if (!file) return lastFailure();
  // Only a file on disk stays the same between these reads and the provider's.
  if (GetFileType(file.get()) != FILE_TYPE_DISK) return failure(ERROR_BAD_FILE_TYPE);
  return file;
}

bool readAt(HANDLE file, std::uint64_t offset, std::span<std::byte> bytes) {
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>(offset);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32U);
  DWORD read = 0;
  return ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, &place) != FALSE &&
         read == bytes.size();
}

/// Refused when the file's size cannot be had.
CertificateTable judgeTableOf(HANDLE file) {
  LARGE_INTEGER size{};
  if (GetFileSizeEx(file, &size) == FALSE) return {};
  return judgeCertificateTable(
      static_cast<std::uint64_t>(size.QuadPart),
      [file](std::uint64_t offset, std::span<std::byte> bytes) { return readAt(file, offset, bytes); });
}

class WindowsSignedFile final : public SignedFile {
 public:
  explicit WindowsSignedFile(FileHandle file) noexcept : file_(std::move(file)) {}

  Result<std::uint32_t> certificateLength() override {
    return within(kOpenLimit, [this] { return judgedLength(); });
  }

  Result<void> readCertificate(std::uint32_t length) override {
    // When the system finds another entry than was judged, or one where none was
    // found, then it is not known what its parsers would see.
    if (!table_.isAcceptable() || length != table_.firstEntryBytes) return failure(ERROR_INVALID_DATA);
    certificate_.resize(std::size_t{length} + kCertificateHeadroomBytes);
    return within(kOpenLimit, [&] {
      DWORD required = length;
      return resultOf(ImageGetCertificateData(file_.get(), kFirstCertificate,
                                              reinterpret_cast<WIN_CERTIFICATE*>(certificate_.data()),
                                              &required) != FALSE);
    });
  }

 private:
  Result<std::uint32_t> judgedLength() {
    table_ = judgeTableOf(file_.get());
    // What is refused is seen by no parser; readCertificate() says so.
    if (table_.verdict == CertificateTable::Verdict::Refused) return 0;
    WIN_CERTIFICATE header;
    std::memset(&header, 0, sizeof(header));  // with the four bytes of bCertificate and its padding
    header.wRevision = WIN_CERT_REVISION_1_0;
    if (ImageGetCertificateHeader(file_.get(), kFirstCertificate, &header) == FALSE) return lastFailure();
    return header.dwLength;
  }

  FileHandle file_;
  CertificateTable table_;
  std::vector<std::byte> certificate_;
};

class WindowsCertificate final : public Certificate {
 public:
  explicit WindowsCertificate(ScopedHandle<CertificateTraits> context) noexcept
      : context_(std::move(context)) {}

  Result<std::uint32_t> sha256(std::span<std::uint8_t> buffer) const override {
    auto bytes = static_cast<DWORD>(buffer.size());
    if (CryptHashCertificate(0, CALG_SHA_256, 0, context_.get()->pbCertEncoded, context_.get()->cbCertEncoded,
                             buffer.data(), &bytes) == FALSE ||
        bytes == 0) {
      return lastFailure();
    }
    return bytes;
  }

  Result<std::uint32_t> subjectAttribute(const char* oid, std::span<wchar_t> buffer) const override {
    std::string identifier(oid);  // the parameter is not const
    const DWORD length = CertGetNameStringW(context_.get(), CERT_NAME_ATTR_TYPE, 0, identifier.data(),
                                            buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return lastFailure();
    return length;
  }

 private:
  ScopedHandle<CertificateTraits> context_;
};

class WindowsEmbeddedSignature final : public EmbeddedSignature {
 public:
  WindowsEmbeddedSignature(ScopedHandle<MessageTraits> message, ScopedHandle<StoreTraits> store) noexcept
      : message_(std::move(message)), store_(std::move(store)) {}

  Result<std::uint32_t> signerInfo(std::span<std::byte> buffer) const override {
    auto bytes = static_cast<DWORD>(buffer.size());
    if (CryptMsgGetParam(message_.get(), CMSG_SIGNER_INFO_PARAM, kFirstSigner, buffer.data(), &bytes) ==
        FALSE) {
      return lastFailure();
    }
    return bytes;
  }

  Result<std::unique_ptr<Certificate>> findCertificate(std::span<const std::byte> signer) const override {
    if (signer.size() < sizeof(CMSG_SIGNER_INFO)) return failure(ERROR_INVALID_DATA);
    // The pointers in it lead into the same buffer, behind the structure.
    const auto& information = *reinterpret_cast<const CMSG_SIGNER_INFO*>(signer.data());
    CERT_INFO wanted{};
    wanted.Issuer = information.Issuer;
    wanted.SerialNumber = information.SerialNumber;
    ScopedHandle<CertificateTraits> context(
        CertFindCertificateInStore(store_.get(), kEncoding, 0, CERT_FIND_SUBJECT_CERT, &wanted, nullptr));
    if (!context) return lastFailure();
    return std::make_unique<WindowsCertificate>(std::move(context));
  }

 private:
  // The store is closed first, then the message.
  ScopedHandle<MessageTraits> message_;
  ScopedHandle<StoreTraits> store_;
};

class WindowsTrustApi final : public TrustApi {
 public:
  Result<std::unique_ptr<SignedFile>> openFile(const std::wstring& path) override {
    auto file = within(kOpenLimit, [&] { return openForChecks(path); });
    if (!file) return failure(file.error());
    return std::make_unique<WindowsSignedFile>(std::move(*file));
  }

  std::int32_t verifyTrust(const std::wstring& path) override {
    WinTrustCall call(path.c_str());
    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    IoDeadline deadline(kCopyLimit);  // the provider reads the whole file, as a copy does
    const LONG status = WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, call.data());
    const LastErrorKeeper providersError;  // which ending the deadline could change
    deadline.disarm();
    return status;
  }

  Result<std::unique_ptr<EmbeddedSignature>> querySignature(const std::wstring& path) override {
    return within(kOpenLimit, [&] { return judgedSignature(path); });
  }

 private:
  /// Judges the table here, too: who only wants to know the signer asks without
  /// CheckCertificateIntegrity() or after it has refused.
  static Result<std::unique_ptr<EmbeddedSignature>> judgedSignature(const std::wstring& path) {
    // Held open so that the query, which goes by name, reads the file that was judged.
    const auto held = openForChecks(path);
    if (!held) return failure(held.error());
    const CertificateTable table = judgeTableOf(held->get());
    if (!table.isAcceptable()) {
      const bool isMissing = table.verdict == CertificateTable::Verdict::Missing;
      return failure(isMissing ? static_cast<DWORD>(CRYPT_E_NO_MATCH) : ERROR_INVALID_DATA);
    }
    DWORD encoding = 0;
    DWORD content = 0;
    DWORD format = 0;
    ScopedHandle<MessageTraits> message;
    ScopedHandle<StoreTraits> store;
    if (CryptQueryObject(CERT_QUERY_OBJECT_FILE, path.c_str(), CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED,
                         CERT_QUERY_FORMAT_FLAG_BINARY, 0, &encoding, &content, &format, store.receive(),
                         message.receive(), nullptr) == FALSE) {
      return lastFailure();
    }
    return std::make_unique<WindowsEmbeddedSignature>(std::move(message), std::move(store));
  }
};

}  // namespace

WinTrustCall::WinTrustCall(const wchar_t* path) noexcept {
  file_.cbStruct = kFileInfoBytes;
  file_.pcwszFilePath = path;

  data_.cbStruct = kDataBytes;
  data_.dwUIChoice = WTD_UI_NONE;
  data_.fdwRevocationChecks = WTD_REVOKE_WHOLECHAIN;
  data_.dwUnionChoice = WTD_CHOICE_FILE;
  data_.pFile = &file_;
  data_.dwStateAction = WTD_STATEACTION_IGNORE;
  data_.dwProvFlags = WTD_REVOCATION_CHECK_CHAIN;
  data_.dwUIContext = WTD_UICONTEXT_INSTALL;
}

TrustApi& systemTrustApi() {
  static WindowsTrustApi api;
  return api;
}

}  // namespace zarn
