// The operating system as a script: one signed file, any of whose calls can be
// made to fail. Records every call and every release, in order.
#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "os/system_error.h"
#include "trust/certificate_integrity.h"
#include "trust/trust_api.h"

namespace zarn::testing {

struct CarriedCertificate {
  std::string issuerAndSerial;
  std::vector<std::uint8_t> digest;
  std::map<std::string, std::wstring> subject;  // by identifier
};

struct ScriptedTrustApi final : TrustApi {
  std::string failingCall;                     // fails with
  std::uint32_t failure = 0;                   // this last error
  std::int32_t trustStatus = 0;                // WinVerifyTrust's answer
  std::string signerOfMessage = "CN=Zarn, 1";  // issuer and serial number of signer 0
  std::vector<CarriedCertificate> carried;     // certificates in the signature
  std::vector<std::string> calls;              // what happened
  std::set<std::wstring> paths;                // what it was asked for

  bool succeeds(const std::string& call) {
    calls.push_back(call);
    if (call == failingCall) setLastSystemError(failure);
    return call != failingCall;
  }
  /// Of a call that is made without a buffer first, for the size.
  bool succeeds(const std::string& call, const void* buffer) {
    return succeeds(buffer == nullptr ? call + " (size)" : call);
  }
  std::unique_ptr<SignedFile> openFile(const std::wstring& path) override {
    paths.insert(path);
    return succeeds("CreateFileW") ? std::make_unique<File>(*this) : nullptr;
  }
  std::int32_t verifyTrust(const std::wstring& path) override {
    paths.insert(path);
    return succeeds("WinVerifyTrust") ? 0 : trustStatus;
  }
  std::unique_ptr<EmbeddedSignature> querySignature(const std::wstring& path) override {
    paths.insert(path);
    return succeeds("CryptQueryObject") ? std::make_unique<Signature>(*this) : nullptr;
  }

  template <typename Interface>
  struct Scripted : Interface {
    explicit Scripted(ScriptedTrustApi& script) : api(script) {}
    ~Scripted() override { api.calls.emplace_back("release"); }
    ScriptedTrustApi& api;
  };

  struct File final : Scripted<SignedFile> {
    using Scripted::Scripted;
    std::optional<std::uint32_t> certificateLength() override {
      return api.succeeds("ImageGetCertificateHeader") ? std::optional<std::uint32_t>(4711) : std::nullopt;
    }
    bool readCertificate(std::uint32_t length) override {
      return api.succeeds("ImageGetCertificateData") && length == 4711;
    }
  };

  struct Context final : Scripted<Certificate> {
    Context(ScriptedTrustApi& script, const CarriedCertificate& found)
        : Scripted(script), certificate(found) {}
    bool sha256(std::uint8_t* buffer, std::uint32_t& size) const override {
      if (buffer != nullptr) std::ranges::copy(certificate.digest, buffer);
      // Asked for the size, a provider may answer more than it writes.
      size = static_cast<std::uint32_t>(certificate.digest.size()) + (buffer == nullptr ? 8 : 0);
      return api.succeeds("CryptHashCertificate", buffer);
    }
    std::uint32_t subjectAttribute(const char* oid, wchar_t* buffer, std::uint32_t size) const override {
      if (!api.succeeds("CertGetNameStringW", buffer)) return 0;
      const auto found = certificate.subject.find(oid);
      const std::wstring text = found == certificate.subject.end() ? L"" : found->second;
      if (buffer != nullptr) text.copy(buffer, size);
      return static_cast<std::uint32_t>(text.size()) + 1;
    }
    const CarriedCertificate& certificate;
  };

  struct Signature final : Scripted<EmbeddedSignature> {
    using Scripted::Scripted;
    bool signerInfo(std::byte* buffer, std::uint32_t& size) const override {
      if (buffer != nullptr) std::ranges::copy(std::as_bytes(std::span(api.signerOfMessage)), buffer);
      size = static_cast<std::uint32_t>(api.signerOfMessage.size());
      return api.succeeds("CryptMsgGetParam", buffer);
    }
    std::unique_ptr<Certificate> findCertificate(std::span<const std::byte> signer) const override {
      if (!api.succeeds("CertFindCertificateInStore")) return nullptr;
      const auto found = std::ranges::find_if(api.carried, [&](const auto& certificate) {
        return std::ranges::equal(std::as_bytes(std::span(certificate.issuerAndSerial)), signer);
      });
      return found != api.carried.end() ? std::make_unique<Context>(api, *found) : nullptr;
    }
  };
};

/// "Verified", which a check alone can say. Logs what the check does.
inline TrustResult verifiedByScript() {
  ScriptedTrustApi api;
  return CheckCertificateIntegrity(api, L"verified.exe");
}

}  // namespace zarn::testing
