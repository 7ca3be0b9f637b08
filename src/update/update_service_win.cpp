#include <windows.h>

#include <rpc.h>

#include <optional>

#include "service/end_process.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/certificate_profile.h"
#include "trust/signer_observer.h"
#include "update/install_request.h"
#include "update/rpc_server.h"
#include "update/staged_installer.h"
#include "update/update_history.h"
#include "update/update_service.h"
#include "util/file_utils.h"
#include "util/logging.h"
#include "util/string_utils.h"
#include "util/system_error.h"

namespace zarn {
namespace {

constexpr int kStopTries = 100;
constexpr DWORD kStopRetryMilliseconds = 20;

const InstallRequest& installRequest() {
  static const InstallRequest request({
      .checkIntegrity = [](const std::wstring& path) { return CheckCertificateIntegrity(path); },
      .checkIdentity =
          [](const std::wstring& path, IdentityFacts& facts) {
            SignerObserver observer(systemTrustApi());
            const TrustResult result = CheckCertificateIdentity(observer, path, [&facts] {
              auto profile = FetchCertificateProfile();
              facts.profileWasHad = !profile.empty();
              return profile;
            });
            facts.signer = observer.signer();
            return result;
          },
      .record =
          [](const InstallRecord& record) {
            appendToHistory(FileUtils::logDirectory(), historyLine(record));
          },
      .restart = [] { UpdateService::instance().requestRestart(); },
      .runOptions = {},
  });
  return request;
}

}  // namespace

UpdateService& UpdateService::instance() {
  static UpdateService service;
  return service;
}

std::uint32_t UpdateService::initialize() {
  logLine(LogLevel::Debug, "UpdateService::initialize: Zarn Update Service");
  if (const std::uint32_t status = rpc_server::openEndpoint(); status != 0) {
    logWin32Error(LogLevel::Error, "UpdateService::initialize: RpcServerUseProtSeqEp failed.");
    return status;
  }
  if (const std::uint32_t status = rpc_server::registerInterface(); status != 0) {
    logWin32Error(LogLevel::Error, "UpdateService::initialize: RpcServerRegisterIf failed.");
    return status;
  }
  return 0;
}

std::uint32_t UpdateService::run() {
  logLine(LogLevel::Debug, "Running Zarn Update Service");
  logLine(LogLevel::Debug, "Attempting to delete stale update file.");
  if (!FileUtils::deleteFile(StringUtils::utf16to8(stagedInstallerPath()))) {
    logLine(LogLevel::Debug, "Failed to delete bundle from temp directory.");
  }
  logLine(LogLevel::Debug, "Listening for remote procedure calls...");
  const std::uint32_t listened = rpc_server::listen();
  stopped_ = true;
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
  std::uint32_t status = rpc_server::stopListening();
  // The service is reported as running a moment before it listens. A stop that
  // comes in between would be the last one that the control manager sends.
  for (int tries = 0; status == RPC_S_NOT_LISTENING && !stopped_ && tries < kStopTries; ++tries) {
    Sleep(kStopRetryMilliseconds);
    status = rpc_server::stopListening();
  }
  if (status == 0) {
    stopped_ = true;
  } else {
    logLine(LogLevel::Error, "UpdateService::stop: RpcMgmtStopServerListening failed  %d,  %s",
            static_cast<std::int32_t>(status), systemErrorPhrase(status));
  }
  return status;
}

void UpdateService::requestRestart() {
  restartCode_.store(kRestartCode);
  stop();
}

Status UpdateService::Install(const std::wstring& bundlePath, std::int32_t& exitCode) {
  return installRequest().Install(bundlePath, exitCode);
}

Status UpdateService::CheckBundle(const std::wstring& bundlePath) {
  return installRequest().checkCallersBundle(bundlePath);
}

}  // namespace zarn
