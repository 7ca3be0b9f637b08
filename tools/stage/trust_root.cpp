// Puts root certificates (DER files) into the machine's store of trusted roots,
// as an administrator of the test machine would.
#include <windows.h>

#include <wincrypt.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

int main(int count, char** files) {
  const HCERTSTORE store =
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
  if (store == nullptr) return 1;
  int failures = 0;
  for (int i = 1; i < count; ++i) {
    std::ifstream file(files[i], std::ios::binary);
    const std::vector<char> der{std::istreambuf_iterator<char>(file), {}};
    if (CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(der.data()),
                                         static_cast<DWORD>(der.size()), CERT_STORE_ADD_REPLACE_EXISTING,
                                         nullptr) == 0) {
      std::fprintf(stderr, "%s: error 0x%lx\n", files[i], GetLastError());
      ++failures;
    }
  }
  CertCloseStore(store, 0);
  return failures;
}
