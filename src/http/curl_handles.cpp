#include "http/curl_handles.h"

#include "http/curl_exception.h"
#include "os/process.h"

namespace zarn {

void initializeCurl() {
  static const CURLcode outcome = [] {
    os::removeEnvironmentVariable("SSLKEYLOGFILE");
    return curl_global_init(CURL_GLOBAL_DEFAULT);
  }();
  CURLException::throwOnFailure(outcome);
}

}  // namespace zarn
