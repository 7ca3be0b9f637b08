#include "http/curl_handles.h"

#include "http/curl_exception.h"
#include "http/http_platform.h"

namespace zarn {

void initializeCurl() {
  static const CURLcode outcome = [] {
    platform::removeEnvironmentVariable("SSLKEYLOGFILE");
    return curl_global_init(CURL_GLOBAL_DEFAULT);
  }();
  CURLException::throwOnFailure(outcome);
}

}  // namespace zarn
