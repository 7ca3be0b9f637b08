#include <windows.h>

#include <rpc.h>

#include <memory>
#include <optional>

#include "log/log.h"
#include "os/error_text.h"
#include "prefs/preferences.h"
#include "service/end_process.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/certificate_profile.h"
#include "update/bundle.h"
#include "update/impersonation_win.h"
#include "update/install_events.h"
#include "update/install_request.h"
#include "update/record_folder.h"
#include "update/update_service.h"
#include "util/exceptions.h"
#include "util/file_utils.h"
#include "util/held_folder.h"
#include "util/log_win32_error.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

static_assert(BoundedListener::kNotListening == RPC_S_NOT_LISTENING);
static_assert(BoundedListener::kTimedOut == ERROR_TIMEOUT);

constexpr int kEndpointTries = 40;
constexpr DWORD kEndpointRetryMilliseconds = 250;

/// Held until the process ends.
RecordFolder& recordFolder() {
  static RecordFolder& folder = *std::make_unique<RecordFolder>(recordFolderPath()).release();
  return folder;
}

/// The record that counts, and its copy where callers look for logs.
void keep(const InstallRecord& record) {
  reportInstall(record);
  quietly([&record] { recordFolder().append(record); });
  if (!record.reason.empty()) return;  // not even begun, and perhaps one of many
  appendToHistory(FileUtils::logDirectory(), recordLine(record));
}

const InstallRequest& installRequest() {
  static const InstallRequest request({
      .openBundle = openBundleAsCaller,
      .checkIntegrity =
          [](const std::wstring& path, const std::wstring& shownAs) {
            return CheckCertificateIntegrity(systemTrustApi(), path, shownAs);
          },
      .checkIdentity =
          [](const std::wstring& path) {
            return CheckCertificateIdentity(systemTrustApi(), path, FetchCertificateProfile);
          },
      .checkPolicy = CheckUpdatePolicy,
      .installed = rememberInstalledVersion,
      .announce = [](const InstallRecord& record) { return recordFolder().announce(record); },
      .record = keep,
      .restart = [] { UpdateService::instance().requestRestart(); },
      .runOptions = {},
  });
  return request;
}

/// Whoever holds the endpoint keeps us from it: the process before this one, which may
/// still be ending, or somebody who means to.
std::uint32_t openEndpoint() {
  std::uint32_t status = rpc_server::openEndpoint();
  for (int tries = 1; status == RPC_S_DUPLICATE_ENDPOINT && tries < kEndpointTries; ++tries) {
    Sleep(kEndpointRetryMilliseconds);
    status = rpc_server::openEndpoint();
  }
  return status;
}

void adoptAppDataPath(std::wstring_view path) {
  const std::string text = StringUtils::utf16to8(path);
  logLine(LogLevel::Debug, "Setting Local Appdata Path: %s", printable(text));
  Preferences::instance().set(preference::kLocalAppDataPath, text);
  // Folders that are missing on the way are made with the caller's rights, so that it can
  // have none made where it may not make them itself.
  Log::instance().moveToCurrentDirectory([](const std::function<void()>& make) {
    const auto made = runAsCaller(make);
    if (!made)
      logSystemFailure(LogLevel::Warn, made.error(), "The caller lets nobody make folders in its name.");
  });
}

}  // namespace

UpdateService::UpdateService()
    : listener_({.listen = rpc_server::listen,
                 .stopListening = rpc_server::stopListening,
                 .waitUntilIdle = [this](std::chrono::milliseconds limit) {
                   return installs_.waitUntilIdle(limit);
                 }}) {}

UpdateService& UpdateService::instance() {
  static UpdateService service;
  return service;
}

std::uint32_t UpdateService::initialize() {
  logLine(LogLevel::Debug, "UpdateService::initialize: Zarn Update Service");
  // Calls of the RPC runtime answer with a status, which is returned; the lines name the
  // thread's last error as well, as all lines about failed calls do.
  if (const std::uint32_t status = openEndpoint(); status != 0) {
    logWin32Error(LogLevel::Error, "UpdateService::initialize: RpcServerUseProtSeqEp failed.");
    return status;
  }
  if (const std::uint32_t status = rpc_server::registerInterface(*this); status != 0) {
    logWin32Error(LogLevel::Error, "UpdateService::initialize: RpcServerRegisterIf failed.");
    return status;
  }
  return 0;
}

std::uint32_t UpdateService::run() {
  logLine(LogLevel::Debug, "Running Zarn Update Service");
  quietly([] { recordFolder().prepare(); });
  logLine(LogLevel::Debug, "Attempting to delete stale update file.");
  quietly([] {
    if (!FileUtils::removeWhatever(StringUtils::utf16to8(stagedInstallerPath()))) {
      logLine(LogLevel::Debug, "Failed to delete bundle from temp directory.");
    }
  });
  logLine(LogLevel::Debug, "Listening for remote procedure calls...");
  const std::uint32_t listened = listener_.run();
  if (listened != 0) {
    logWin32Error(LogLevel::Error, "UpdateService::run: RpcServerListen failed.");
    return listened;
  }
  const std::uint32_t restartCode = restartCode_.load();
  if (restartCode == kRestartCode) {
    logLine(LogLevel::Debug, "Shutting down for restart");
    endProcess(kRestartCode);
  }
  return restartCode;
}

std::uint32_t UpdateService::stop() {
  logLine(LogLevel::Debug, "Stopping Zarn Update Service");
  // Who still waits has the answer now; who runs is not cut short.
  installs_.close();
  checks_.close();
  settings_.close();
  const std::uint32_t status = listener_.stop();
  if (status != 0) {
    logLine(LogLevel::Error, "UpdateService::stop: RpcMgmtStopServerListening failed  %d,  %s",
            static_cast<std::int32_t>(status), systemErrorPhrase(status));
  }
  return status;
}

void UpdateService::requestRestart() {
  restartCode_.store(kRestartCode);
  stop();
}

CallQueue::Turn UpdateService::takeTurn(CallQueue& queue, const Requester& requester, const char* procedure,
                                        const std::wstring& path) {
  const std::string& owner = requester.caller.sid;
  // Who does not say who it is would have places of its own beside those of its user.
  auto turn =
      owner.empty() ? CallQueue::refused(CallQueue::Refusal::Unknown) : queue.enter(owner, requester.isGone);
  if (!turn) {
    logLine(LogLevel::Error, "%s: the request for %s is refused, %s.", std::string_view(procedure),
            printable(StringUtils::utf16to8(path)), std::string_view(inWords(turn.refusal())));
  }
  return turn;
}

Status UpdateService::Install(const Requester& requester, const std::wstring& bundlePath,
                              std::int32_t& exitCode) {
  const auto turn = takeTurn(installs_, requester, "Install", bundlePath);
  if (turn) return installRequest().Install(requester.caller, bundlePath, exitCode);
  // Who reads the record can make each line of it slow: a flood waits for none.
  if (const auto place = refusals_.enter(requester.caller.sid, {})) {
    installRequest().refuse(requester.caller, bundlePath, inWords(turn.refusal()));
  } else {
    reportRefusal(requester.caller, StringUtils::utf16to8(bundlePath), inWords(turn.refusal()));
  }
  return Status::Failed;
}

Status UpdateService::CheckBundle(const Requester& requester, const std::wstring& bundlePath) {
  const auto turn = takeTurn(checks_, requester, "CheckBundle", bundlePath);
  return turn ? installRequest().checkCallersBundle(bundlePath) : Status::SignatureRefused;
}

void UpdateService::setLocalAppDataPath(const Requester& requester, const std::wstring& path) {
  const auto turn = takeTurn(settings_, requester, "SetLocalAppDataPath", path);
  if (turn) adoptAppDataPath(path);
}

}  // namespace zarn
