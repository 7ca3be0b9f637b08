#include "trust/certificate_integrity.h"

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

TrustResult refuseUnopened(const std::string& shown, SystemError error) {
  return TrustResult::refused(logSystemFailure(LogLevel::Debug, error, "Failed CreateFile() of %s", shown));
}

}  // namespace

TrustResult CheckCertificateIntegrity(TrustApi& api, const std::wstring& path) {
  return CheckCertificateIntegrity(api, path, path);
}

TrustResult CheckCertificateIntegrity(TrustApi& api, const std::wstring& path, const std::wstring& shownAs) {
  const std::string shown = announceCheck(shownAs);
  // Open until the end: what the provider reads by name cannot be written meanwhile.
  const auto file = api.openFile(path);
  if (!file) return refuseUnopened(shown, file.error());
  const auto length = (*file)->certificateLength();
  if (!length) {
    return TrustResult::refused(
        logSystemFailure(LogLevel::Debug, length.error(), "ImageGetCertificateHeader() failed"));
  }
  // The data itself is not looked at. That it can be read shows that the file has an
  // entry for the provider to judge.
  if (const auto data = (*file)->readCertificate(*length); !data) {
    return TrustResult::refused(
        logSystemFailure(LogLevel::Debug, data.error(), "ImageGetCertificateData() failed"));
  }

  const std::int32_t status = api.verifyTrust(path);
  if (status != 0) {
    // The second line shows the last error, which need not be the status.
    logWin32Error(LogLevel::Error, "Certificate couldn't be verified with the following error:");
    return TrustResult::refused(static_cast<std::uint32_t>(status));
  }
  logLine(LogLevel::Debug, "Certificate integrity verified");
  return TrustResult::verified();
}

TrustResult integrityOfUnopened(const std::wstring& path, SystemError error) {
  return refuseUnopened(announceCheck(path), error);
}

}  // namespace zarn
