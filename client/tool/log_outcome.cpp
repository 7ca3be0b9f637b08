#include "client/tool/log_outcome.h"

#include <algorithm>
#include <charconv>

#include "client/update_client.h"
#include "update/status.h"

namespace zarn::tool {
namespace {

/// The client's header stands alone, so it has the statuses a second time.
constexpr bool isSame(std::int32_t ours, Status services) {
  return ours == static_cast<std::int32_t>(services);
}
static_assert(isSame(client::kInstalled, Status::Installed));
static_assert(isSame(client::kInstalledRebootRequired, Status::RebootRequired));
static_assert(isSame(client::kRebootInitiated, Status::RebootInitiated));
static_assert(isSame(client::kFailed, Status::Failed));
static_assert(isSame(client::kExitCodeUnknown, Status::ExitCodeUnknown));
static_assert(isSame(client::kSignatureRefused, Status::SignatureRefused));
static_assert(isSame(client::kSignerRefused, Status::SignerRefused));

/// How lines of an install request begin, after time, thread and level.
constexpr std::string_view kRequestTag = "[UpdateService/Install] ";
constexpr std::string_view kBegin = "bundlePath: ";
constexpr std::string_view kInstallerExit = "Installer exit code:  ";
constexpr std::string_view kLevelEnd = " - ";
constexpr std::size_t kTimeLength = 24;  // "Nov 15, 2026 22:42:15.12" at least

struct End {
  std::string_view message;
  std::int32_t status;
};

/// Messages that end a request, by how they begin.
constexpr End kEnds[] = {
    {"CreateFileW() failed.", client::kFailed},
    {"Provided bundle is too large.", client::kFailed},
    {"Provided bundle has invalid extension.", client::kFailed},
    {"Failed to copy bundle to temp directory.", client::kFailed},
    {"CreateFileW() for temp file failed.", client::kFailed},
    {"Failed CreateFile() of ", client::kSignatureRefused},
    {"ImageGetCertificateHeader() failed", client::kSignatureRefused},
    {"ImageGetCertificateData() failed", client::kSignatureRefused},
    {"Certificate couldn't be verified with the following error:", client::kSignatureRefused},
    {"CryptQueryObject() failed", client::kSignerRefused},
    {"CryptMsgGetParm() ", client::kSignerRefused},
    {"CertFindCertificateInStore failed", client::kSignerRefused},
    {"Certificate couldn't be verified", client::kSignerRefused},
    {"UpdateService::RunInstaller: CreateProcess failed", client::kFailed},
    {"UpdateService::RunInstaller: GetExitCodeProcess failed", client::kExitCodeUnknown},
};

std::optional<std::uint32_t> numberAt(std::string_view text) noexcept {
  std::int64_t value = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) return std::nullopt;
  return static_cast<std::uint32_t>(value);
}

/// Takes one request's message into account; true when it ended the request.
bool take(std::string_view message, LogOutcome& request) {
  if (message.starts_with(kInstallerExit)) {
    request.installerExitCode = numberAt(message.substr(kInstallerExit.size()));
    if (!request.installerExitCode) return false;
    request.status = static_cast<std::int32_t>(judgeExitCode(*request.installerExitCode).status);
    return true;
  }
  const auto* const end = std::find_if(std::begin(kEnds), std::end(kEnds),
                                       [&](const End& one) { return message.starts_with(one.message); });
  if (end == std::end(kEnds)) return false;
  request.status = end->status;
  return true;
}

}  // namespace

std::optional<LogOutcome> lastOutcome(std::string_view log) {
  std::optional<LogOutcome> last;
  LogOutcome request;
  bool begun = false;
  while (!log.empty()) {
    const std::size_t end = std::min(log.find('\n'), log.size());
    std::string_view line = log.substr(0, end);
    log.remove_prefix(std::min(end + 1, log.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    // Installs never overlap, so the tag alone says whose line it is.
    const std::size_t level = line.find(kLevelEnd, std::min(kTimeLength, line.size()));
    if (level == std::string_view::npos) continue;
    std::string_view message = line.substr(level + kLevelEnd.size());
    if (!message.starts_with(kRequestTag)) continue;
    message.remove_prefix(kRequestTag.size());
    if (message.starts_with(kBegin)) {
      request = {};
      request.bundle = message.substr(kBegin.size());
      request.time = line.substr(0, line.find(" ["));
      begun = true;
    } else if (begun && take(message, request)) {
      last = request;
      begun = false;
    }
  }
  return last;
}

}  // namespace zarn::tool
