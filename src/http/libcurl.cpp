#include "http/libcurl.h"

#include <atomic>

#include "os/process.h"

namespace zarn {
namespace {

std::atomic<bool> hasLastTransferFailed{false};

}  // namespace

void initializeCurl() {
  // Once: a second start could meet threads that use libcurl already. A failure is kept,
  // and thrown for every request.
  static const CURLcode outcome = [] {
    os::removeEnvironmentVariable("SSLKEYLOGFILE");
    return curl_global_init(CURL_GLOBAL_DEFAULT);
  }();
  CURLException::throwOnFailure(outcome);
}

void noteOutcome(CURLcode outcome) noexcept {
  hasLastTransferFailed = outcome != CURLE_OK;
}

bool mayAuthoritiesBeDamaged() noexcept {
  return hasLastTransferFailed;
}

}  // namespace zarn
