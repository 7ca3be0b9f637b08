// The operating system as a script: one signed file, any of whose calls can be
// made to fail. Records every call and every release, in order.
#pragma once

#include "support/test.h"
#include "trust/certificate_integrity.h"
#include "trust/trust_api.h"

namespace zarn::testing {

struct CarriedCertificate {
  std::vector<std::uint8_t> digest;
  std::map<std::string, std::wstring> subject;  // by identifier
};

struct ScriptedTrustApi final : TrustApi {
  std::string failingCall;                            // fails with
  SystemError error{1};                               // this error
  std::int32_t trustStatus = 0;                       // WinVerifyTrust's answer
  std::string signerOfMessage = "CN=Zarn, 1";         // issuer and serial number of signer 0
  std::map<std::string, CarriedCertificate> carried;  // certificates in the signature, by both numbers
  std::vector<std::string> calls;                     // what happened
  std::set<std::wstring> paths;                       // what it was asked for

  Result<void> call(const std::string& name) {
    calls.push_back(name);
    return name == failingCall ? Result<void>(failure(error)) : Result<void>();
  }
  /// A call that is made without a buffer first, for the size.
  template <typename Unit>
  Result<std::uint32_t> fill(const std::string& name, std::span<Unit> buffer, std::span<const Unit> content) {
    std::copy_n(content.begin(), std::min(content.size(), buffer.size()), buffer.begin());
    const auto size = static_cast<std::uint32_t>(content.size());
    return call(buffer.empty() ? name + " (size)" : name).map([size] { return size; });
  }

  /// Whatever a call opens.
  struct Object final : SignedFile, EmbeddedSignature, Certificate {
    explicit Object(ScriptedTrustApi& script, const CarriedCertificate* found = nullptr)
        : api(script), certificate(found) {}
    ~Object() override { api.calls.emplace_back("release"); }

    Result<std::uint32_t> certificateLength() override {
      return api.call("ImageGetCertificateHeader").map([] { return std::uint32_t{4711}; });
    }
    Result<void> readCertificate(std::uint32_t length) override {
      return length == 4711 ? api.call("ImageGetCertificateData") : failure(1);
    }
    Result<std::uint32_t> signerInfo(std::span<std::byte> buffer) const override {
      return api.fill("CryptMsgGetParam", buffer, std::as_bytes(std::span(api.signerOfMessage)));
    }
    Result<std::unique_ptr<Certificate>> findCertificate(std::span<const std::byte> signer) const override {
      if (const auto called = api.call("CertFindCertificateInStore"); !called) return failure(called.error());
      const std::string wanted(reinterpret_cast<const char*>(signer.data()), signer.size());
      const auto found = api.carried.find(wanted);
      if (found == api.carried.end()) return failure(2);
      return std::make_unique<Object>(api, &found->second);
    }
    Result<std::uint32_t> sha256(std::span<std::uint8_t> buffer) const override {
      // Asked for the size, a provider may answer more than it writes.
      return api.fill<std::uint8_t>("CryptHashCertificate", buffer, certificate->digest)
          .map([&](std::uint32_t size) { return size + (buffer.empty() ? 8 : 0); });
    }
    Result<std::uint32_t> subjectAttribute(const char* oid, std::span<wchar_t> buffer) const override {
      const std::wstring text = certificate->subject.contains(oid) ? certificate->subject.at(oid) : L"";
      return api.fill<wchar_t>("CertGetNameStringW", buffer, std::span(text.c_str(), text.size() + 1));
    }

    ScriptedTrustApi& api;
    const CarriedCertificate* certificate;
  };

  template <typename Interface>
  Result<std::unique_ptr<Interface>> open(const char* name, const std::wstring& path) {
    paths.insert(path);
    if (const auto called = call(name); !called) return failure(called.error());
    return std::make_unique<Object>(*this);
  }
  Result<std::unique_ptr<SignedFile>> openFile(const std::wstring& path) override {
    return open<SignedFile>("CreateFileW", path);
  }
  Result<std::unique_ptr<EmbeddedSignature>> querySignature(const std::wstring& path) override {
    return open<EmbeddedSignature>("CryptQueryObject", path);
  }
  std::int32_t verifyTrust(const std::wstring& path) override {
    paths.insert(path);
    if (call("WinVerifyTrust")) return 0;
    setLastSystemError(error.reported());
    return trustStatus;
  }
};

/// "Verified", which a check alone can say. Logs what the check does.
inline TrustResult verifiedByScript() {
  ScriptedTrustApi api;
  return CheckCertificateIntegrity(api, L"verified.exe");
}

}  // namespace zarn::testing
