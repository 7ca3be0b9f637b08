// install_update BUNDLE: what a media server does with a bundle that it has downloaded. Ends with 0
// when the update is installed, 1 when it is not, 2 when nobody knows.
#include "update_client.h"

#include <cstdio>

using namespace zarn::client;

int wmain(int count, wchar_t** arguments) {
  CallOptions options;
  options.timeLimit = std::chrono::hours(1);
  options.awaitRestart = true;  // so that the next call finds somebody
  const auto result = UpdateClient().install(count == 2 ? arguments[1] : L"", options);
  if (!result.ok()) {
    const CallFailure failure = result.error().failure;
    std::printf("no answer: %ls\n", describe(result.error()).c_str());
    // Who tries again at once, when nobody knows what was done, may install twice.
    const bool isUnknown = failure == CallFailure::Interrupted || failure == CallFailure::TimedOut ||
                           failure == CallFailure::Other;
    return isUnknown ? 2 : 1;
  }
  const InstallAnswer& answer = result.value();
  std::printf("status %ld, %ls\n", static_cast<long>(answer.status), describeStatus(answer.status).c_str());
  if (answer.restart == Restart::Back) std::puts("the service is back");
  if (answer.restart == Restart::NotBack) std::puts("the service has not come back yet");
  const bool isInstalled = answer.status == kInstalled || answer.status == kInstalledRebootRequired ||
                           answer.status == kRebootInitiated;
  return isInstalled ? 0 : 1;
}
