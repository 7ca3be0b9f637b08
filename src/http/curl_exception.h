// A failed libcurl call as an exception.
#pragma once

#include <curl/curl.h>

#include <stdexcept>

namespace zarn {

/// The message is libcurl's text for the code.
class CURLException : public std::runtime_error {
 public:
  explicit CURLException(CURLcode code) : std::runtime_error(curl_easy_strerror(code)), code_(code) {}
  explicit CURLException(CURLMcode code) : std::runtime_error(curl_multi_strerror(code)), code_(code) {}
  explicit CURLException(CURLSHcode code) : std::runtime_error(curl_share_strerror(code)), code_(code) {}

  /// The easy, multi or share code, as a number.
  [[nodiscard]] int code() const noexcept { return code_; }

  /// Throws unless `code`, of any of the three kinds, stands for success.
  template <typename Code>
  static void throwOnFailure(Code code) {
    if (static_cast<int>(code) != 0) throw CURLException(code);
  }

 private:
  int code_;
};

}  // namespace zarn
