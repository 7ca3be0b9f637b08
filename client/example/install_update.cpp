// install_update BUNDLE: what a media server does with a bundle that it has downloaded.
// Ends with 0 when the update is installed, 1 when it is not, 2 when nobody knows.
#include <cstdio>

#include "client/update_client.h"

namespace {

using namespace zarn::client;

/// In words, for whoever reads the media server's log.
const char* reasonOf(const CallError& error) {
  switch (error.failure) {
    case CallFailure::NotRunning:
      return "the update service is not running";
    case CallFailure::Refused:
      return "the update service does not take calls of this account";
    case CallFailure::Interrupted:
      return "the update service ended during the call";
    case CallFailure::InvalidPath:
      return "the path holds a zero character";
    case CallFailure::Other:
      break;
  }
  return "the call failed";
}

/// A service that went away may have installed the update: whoever tries again at once
/// could install it twice.
int report(const CallError& error) {
  std::printf("%s (RPC status %lu)\n", reasonOf(error), static_cast<unsigned long>(error.rpcStatus));
  return error.failure == CallFailure::Interrupted ? 2 : 1;
}

int report(const InstallAnswer& answer) {
  switch (answer.status) {
    case kInstalled:
      std::puts("installed");
      return 0;
    case kInstalledRebootRequired:
    case kRebootInitiated:
      std::puts("installed; the machine has to be restarted");
      return 0;
    case kSignatureRefused:
    case kSignerRefused:
      std::puts("refused: not shown to be the vendor's (zarn-update verify tells why)");
      return 1;
    default:
      std::printf("not installed: status %ld, installer's exit code %ld\n", static_cast<long>(answer.status),
                  static_cast<long>(answer.installerExitCode));
      return 1;
  }
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 2) {
    std::puts("usage: install_update BUNDLE (an absolute path)");
    return 1;
  }
  const auto answer = UpdateClient().install(arguments[1]);
  return answer.ok() ? report(answer.value()) : report(answer.error());
}
