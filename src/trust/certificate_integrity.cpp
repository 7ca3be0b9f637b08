#include "trust/certificate_integrity.h"

#include "os/system_error.h"
#include "util/log_win32_error.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

/// The first line of every check; the text that stands for the file in it and in others.
std::string announceCheck(const std::wstring& shownAs) {
  std::string shown = printable(StringUtils::utf16to8(shownAs));
  logLine(LogLevel::Debug, "Checking Certificate of installer: %s", shown);
  return shown;
}

/// For the thread's last error.
TrustResult refuseUnopened(const std::string& shown) {
  return TrustResult::refused(logWin32Error(LogLevel::Debug, "Failed CreateFile() of %s", shown));
}

}  // namespace

TrustResult CheckCertificateIntegrity(TrustApi& api, const std::wstring& path) {
  return CheckCertificateIntegrity(api, path, path);
}

TrustResult CheckCertificateIntegrity(TrustApi& api, const std::wstring& path, const std::wstring& shownAs) {
  const std::string shown = announceCheck(shownAs);
  // Open until the end: what the provider reads by name cannot be written meanwhile.
  const auto file = api.openFile(path);
  if (!file) return refuseUnopened(shown);
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

TrustResult integrityOfUnopened(const std::wstring& path, std::uint32_t error) {
  const std::string shown = announceCheck(path);
  setLastSystemError(error);
  return refuseUnopened(shown);
}

}  // namespace zarn
