#include "trust/certificate_integrity.h"

#include "trust/wide_text.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {

TrustResult CheckCertificateIntegrity(TrustApi& api, const std::wstring& path) {
  const std::string shownPath = printable(utf8FromWide(path));
  logLine(LogLevel::Debug, "Checking Certificate of installer: %s", shownPath);

  // Open until the end: what the provider reads by name cannot be written meanwhile.
  const auto file = api.openFile(path);
  if (!file) {
    return TrustResult::refused(logWin32Error(LogLevel::Debug, "Failed CreateFile() of %s", shownPath));
  }
  const auto length = file->certificateLength();
  if (!length) {
    return TrustResult::refused(logWin32Error(LogLevel::Debug, "ImageGetCertificateHeader() failed"));
  }
  if (!file->readCertificate(*length)) {
    return TrustResult::refused(logWin32Error(LogLevel::Debug, "ImageGetCertificateData() failed"));
  }

  const std::int32_t status = api.verifyTrust(path);
  if (status != 0) {
    logWin32Error(LogLevel::Error, "Certificate couldn't be verified with the following error:");
    return TrustResult::refused(static_cast<std::uint32_t>(status));
  }
  logLine(LogLevel::Debug, "Certificate integrity verified");
  return TrustResult::verified();
}

}  // namespace zarn
