#include "http/libcurl.h"

#include "os/process.h"

namespace zarn {

void initializeCurl() {
  // Once: a second start could meet threads that use libcurl already. A failure is kept,
  // and thrown for every request.
  static const CURLcode outcome = [] {
    os::removeEnvironmentVariable("SSLKEYLOGFILE");
    return curl_global_init(CURL_GLOBAL_DEFAULT);
  }();
  CURLException::throwOnFailure(outcome);
}

}  // namespace zarn
