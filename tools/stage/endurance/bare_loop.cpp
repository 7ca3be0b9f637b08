// What a check of the service asks Windows for, and nothing of ours: how much a process grows by that
// alone. Reads "N" from its input, makes N rounds on four threads and answers "done".
//
//   bare_loop BUNDLE
#include <windows.h>

#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "calls.h"

namespace zarn::endurance {
namespace {

void verify(const wchar_t* path) {
  WINTRUST_FILE_INFO file{};
  file.cbStruct = sizeof(file);
  file.pcwszFilePath = path;
  WINTRUST_DATA data{};
  data.cbStruct = sizeof(data);
  data.dwUIChoice = WTD_UI_NONE;
  data.fdwRevocationChecks = WTD_REVOKE_WHOLECHAIN;
  data.dwUnionChoice = WTD_CHOICE_FILE;
  data.pFile = &file;
  data.dwProvFlags = WTD_REVOCATION_CHECK_CHAIN;
  data.dwUIContext = WTD_UICONTEXT_INSTALL;
  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &data);
}

void findSigner(const wchar_t* path) {
  constexpr DWORD encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  HCERTSTORE store = nullptr;
  HCRYPTMSG message = nullptr;
  if (CryptQueryObject(CERT_QUERY_OBJECT_FILE, path, CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED,
                       CERT_QUERY_FORMAT_FLAG_BINARY, 0, nullptr, nullptr, nullptr, &store, &message,
                       nullptr) == 0)
    return;
  std::vector<BYTE> buffer(65'536);
  auto bytes = static_cast<DWORD>(buffer.size());
  if (CryptMsgGetParam(message, CMSG_SIGNER_INFO_PARAM, 0, buffer.data(), &bytes) != 0) {
    const auto& signer = *reinterpret_cast<const CMSG_SIGNER_INFO*>(buffer.data());
    CERT_INFO wanted{};
    wanted.Issuer = signer.Issuer;
    wanted.SerialNumber = signer.SerialNumber;
    const PCCERT_CONTEXT found =
        CertFindCertificateInStore(store, encoding, 0, CERT_FIND_SUBJECT_CERT, &wanted, nullptr);
    if (found != nullptr) {
      BYTE digest[32];
      DWORD length = sizeof(digest);
      CryptHashCertificate(0, CALG_SHA_256, 0, found->pbCertEncoded, found->cbCertEncoded, digest, &length);
      CertFreeCertificateContext(found);
    }
  }
  CertCloseStore(store, 0);
  CryptMsgClose(message);
}

void loop(const std::wstring& path, unsigned rounds) {
  constexpr unsigned kThreads = 4;
  std::vector<std::thread> threads;
  for (unsigned thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&path, rounds, thread] {
      for (unsigned round = thread; round < rounds; round += kThreads) {
        verify(path.c_str());
        findSigner(path.c_str());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace zarn::endurance

int main(int count, char** arguments) {
  if (count < 2) return 2;
  std::cout << "ready" << std::endl;
  for (unsigned rounds = 0; std::cin >> rounds;) {
    zarn::endurance::loop(zarn::endurance::wide(arguments[1]), rounds);
    std::cout << "done" << std::endl;
  }
  return 0;
}
