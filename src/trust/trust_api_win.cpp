#include "trust/trust_api.h"

#include <windows.h>

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
#include "trust/wintrust_call_win.h"
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

/// Does `operation`, which reads a file that others chose, under a deadline, and
/// keeps the last error that it leaves.
template <typename Operation>
auto within(std::chrono::milliseconds limit, const Operation& operation) {
  DWORD error = ERROR_SUCCESS;
  auto result = [&] {
    const IoDeadline deadline(limit);
    auto answer = operation();
    error = GetLastError();
    return answer;
  }();
  SetLastError(error);
  return result;
}

FileHandle openForChecks(const std::wstring& path) {
  FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              kOpenFlags | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, nullptr));
  if (file && GetFileType(file.get()) != FILE_TYPE_DISK) {
    file.reset();
    SetLastError(ERROR_BAD_FILE_TYPE);
  }
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

  std::optional<std::uint32_t> certificateLength() override {
    return within(kOpenLimit, [&]() -> std::optional<std::uint32_t> {
      table_ = judgeTableOf(file_.get());
      // What is refused is seen by no parser; readCertificate() says so.
      if (table_.verdict == CertificateTable::Verdict::Refused) return 0;
      WIN_CERTIFICATE header;
      std::memset(&header, 0, sizeof(header));  // with the four bytes of bCertificate and its padding
      header.wRevision = WIN_CERT_REVISION_1_0;
      if (ImageGetCertificateHeader(file_.get(), kFirstCertificate, &header) == FALSE) return std::nullopt;
      return header.dwLength;
    });
  }

  bool readCertificate(std::uint32_t length) override {
    // When the system finds another entry than was judged, or one where none was
    // found, then it is not known what its parsers would see.
    if (!table_.isAcceptable() || length != table_.firstEntryBytes) {
      SetLastError(ERROR_INVALID_DATA);
      return false;
    }
    certificate_.resize(std::size_t{length} + kCertificateHeadroomBytes);
    return within(kOpenLimit, [&] {
      DWORD required = length;
      return ImageGetCertificateData(file_.get(), kFirstCertificate,
                                     reinterpret_cast<WIN_CERTIFICATE*>(certificate_.data()),
                                     &required) != FALSE;
    });
  }

 private:
  FileHandle file_;
  CertificateTable table_;
  std::vector<std::byte> certificate_;
};

class WindowsCertificate final : public Certificate {
 public:
  explicit WindowsCertificate(ScopedHandle<CertificateTraits> context) noexcept
      : context_(std::move(context)) {}

  bool sha256(std::uint8_t* buffer, std::uint32_t& size) const override {
    DWORD bytes = size;
    const BOOL done = CryptHashCertificate(0, CALG_SHA_256, 0, context_.get()->pbCertEncoded,
                                           context_.get()->cbCertEncoded, buffer, &bytes);
    size = bytes;
    return done != FALSE;
  }

  std::uint32_t subjectAttribute(const char* oid, wchar_t* buffer, std::uint32_t size) const override {
    std::string identifier(oid);  // the parameter is not const
    return CertGetNameStringW(context_.get(), CERT_NAME_ATTR_TYPE, 0, identifier.data(), buffer, size);
  }

 private:
  ScopedHandle<CertificateTraits> context_;
};

class WindowsEmbeddedSignature final : public EmbeddedSignature {
 public:
  WindowsEmbeddedSignature(ScopedHandle<MessageTraits> message, ScopedHandle<StoreTraits> store) noexcept
      : message_(std::move(message)), store_(std::move(store)) {}

  bool signerInfo(std::byte* buffer, std::uint32_t& size) const override {
    DWORD bytes = size;
    const BOOL done = CryptMsgGetParam(message_.get(), CMSG_SIGNER_INFO_PARAM, kFirstSigner, buffer, &bytes);
    size = bytes;
    return done != FALSE;
  }

  std::unique_ptr<Certificate> findCertificate(std::span<const std::byte> signer) const override {
    if (signer.size() < sizeof(CMSG_SIGNER_INFO)) {
      SetLastError(ERROR_INVALID_DATA);
      return nullptr;
    }
    const auto& information = *reinterpret_cast<const CMSG_SIGNER_INFO*>(signer.data());
    CERT_INFO wanted{};
    wanted.Issuer = information.Issuer;
    wanted.SerialNumber = information.SerialNumber;
    ScopedHandle<CertificateTraits> context(
        CertFindCertificateInStore(store_.get(), kEncoding, 0, CERT_FIND_SUBJECT_CERT, &wanted, nullptr));
    if (!context) return nullptr;
    return std::make_unique<WindowsCertificate>(std::move(context));
  }

 private:
  // The store is closed first, then the message.
  ScopedHandle<MessageTraits> message_;
  ScopedHandle<StoreTraits> store_;
};

class WindowsTrustApi final : public TrustApi {
 public:
  std::unique_ptr<SignedFile> openFile(const std::wstring& path) override {
    FileHandle file = within(kOpenLimit, [&] { return openForChecks(path); });
    return file ? std::make_unique<WindowsSignedFile>(std::move(file)) : nullptr;
  }

  std::int32_t verifyTrust(const std::wstring& path) override {
    WinTrustCall call(path.c_str());
    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    // The provider reads the whole file, as a copy does.
    return within(kCopyLimit, [&] {
      return WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, call.data());
    });
  }

  std::unique_ptr<EmbeddedSignature> querySignature(const std::wstring& path) override {
    return within(kOpenLimit, [&] { return judgedSignature(path); });
  }

 private:
  /// Judges the table here, too: who only wants to know the signer asks without
  /// CheckCertificateIntegrity() or after it has refused.
  static std::unique_ptr<EmbeddedSignature> judgedSignature(const std::wstring& path) {
    const FileHandle held = openForChecks(path);
    if (!held) return nullptr;
    const CertificateTable table = judgeTableOf(held.get());
    if (!table.isAcceptable()) {
      const bool isMissing = table.verdict == CertificateTable::Verdict::Missing;
      SetLastError(isMissing ? static_cast<DWORD>(CRYPT_E_NO_MATCH) : ERROR_INVALID_DATA);
      return nullptr;
    }
    DWORD encoding = 0;
    DWORD content = 0;
    DWORD format = 0;
    ScopedHandle<MessageTraits> message;
    ScopedHandle<StoreTraits> store;
    if (CryptQueryObject(CERT_QUERY_OBJECT_FILE, path.c_str(), CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED,
                         CERT_QUERY_FORMAT_FLAG_BINARY, 0, &encoding, &content, &format, store.receive(),
                         message.receive(), nullptr) == FALSE) {
      return nullptr;
    }
    return std::make_unique<WindowsEmbeddedSignature>(std::move(message), std::move(store));
  }
};

}  // namespace

TrustApi& systemTrustApi() {
  static WindowsTrustApi api;
  return api;
}

}  // namespace zarn
