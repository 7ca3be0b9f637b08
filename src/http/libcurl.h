// libcurl as the rest of this folder uses it: owners for its objects, its errors as
// exceptions, and its process-wide start.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <stdexcept>

namespace zarn {

/// A failed call. The message is libcurl's text for the code, of which there are three kinds.
class CURLException : public std::runtime_error {
 public:
  explicit CURLException(CURLcode code) : std::runtime_error(curl_easy_strerror(code)) {}
  explicit CURLException(CURLMcode code) : std::runtime_error(curl_multi_strerror(code)) {}
  explicit CURLException(CURLSHcode code) : std::runtime_error(curl_share_strerror(code)) {}

  /// Throws unless `code`, of any of the three kinds, stands for success.
  template <typename Code>
  static void throwOnFailure(Code code) {
    if (static_cast<int>(code) != 0) throw CURLException(code);
  }
};

struct EasyHandleDeleter {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
using EasyHandle = std::unique_ptr<CURL, EasyHandleDeleter>;

struct MultiHandleDeleter {
  void operator()(CURLM* handle) const noexcept { curl_multi_cleanup(handle); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiHandleDeleter>;

struct ShareHandleDeleter {
  void operator()(CURLSH* handle) const noexcept { curl_share_cleanup(handle); }
};
using ShareHandle = std::unique_ptr<CURLSH, ShareHandleDeleter>;

struct StringListDeleter {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using StringList = std::unique_ptr<curl_slist, StringListDeleter>;

struct FormDeleter {
  void operator()(curl_httppost* form) const noexcept { curl_formfree(form); }
};
using Form = std::unique_ptr<curl_httppost, FormDeleter>;

struct UrlDeleter {
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};
using Url = std::unique_ptr<CURLU, UrlDeleter>;

struct CurlTextDeleter {
  void operator()(char* text) const noexcept { curl_free(text); }
};
using CurlText = std::unique_ptr<char, CurlTextDeleter>;

/// Starts libcurl, once; to be called before anything else of it. Before that it
/// takes SSLKEYLOGFILE out of the process's environment: libcurl would write the
/// session keys there, and the preference TLSKeyLogPath is to be the only way to
/// ask for them. Throws CURLException when libcurl cannot start.
void initializeCurl();

// libcurl keeps the authorities that it has read for a day. One that memory was short for while it
// was read stays there without its key, and no request would succeed any more. So after one that
// failed they are read anew.

void noteOutcome(CURLcode outcome) noexcept;
[[nodiscard]] bool mayAuthoritiesBeDamaged() noexcept;

}  // namespace zarn
