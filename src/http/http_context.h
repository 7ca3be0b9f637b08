// One HTTP request: its settings on the way in, the transfer's state, and the
// response on the way out.
//
//   const auto request = HttpContext::create("https://host/path", "GET");
//   request->timeout = 60;
//   const auto response = HttpClient::submit(request)->wait();
//
// Settings are made before the context is submitted. From then until its promise
// is settled the context belongs to the HTTP client; afterwards the response may
// be read from any thread. Texts are UTF-8.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "http/libcurl.h"
#include "http/promise.h"

namespace zarn {

/// One field of a multipart form.
struct FormPart {
  enum class Kind : std::uint8_t {
    Contents,  ///< `data` is the field's value
    File,      ///< `data` is the path of a file to send
    Buffer,    ///< `data` is sent as the content of a file called `fileName`
    Stream,    ///< `uploadSize` bytes come from the context's `readCallback`
  };

  std::string name;
  Kind kind = Kind::Contents;
  std::string data;
  std::string fileName;
};

class HttpContext : public std::enable_shared_from_this<HttpContext> {
  struct Key {
    explicit Key() = default;
  };

 public:
  /// Bytes to download, downloaded, to upload, uploaded. False ends the transfer.
  /// Called on the HTTP client's thread; must not block.
  using ProgressHandler = std::function<bool(std::int64_t, std::int64_t, std::int64_t, std::int64_t)>;

  [[nodiscard]] static std::shared_ptr<HttpContext> create(std::string url, std::string verb) {
    return std::make_shared<HttpContext>(Key(), std::move(url), std::move(verb));
  }

  HttpContext(Key /*createdByCreateOnly*/, std::string contextUrl, std::string contextVerb)
      : verb(std::move(contextVerb)), url(std::move(contextUrl)) {}
  HttpContext(const HttpContext&) = delete;
  HttpContext& operator=(const HttpContext&) = delete;
  ~HttpContext() { releaseTransfer(); }

  /// Cleans up the easy handle, then what it pointed to.
  void releaseTransfer() noexcept {
    handle.reset();
    slistHeaders.reset();
    slistResolve.reset();
    form.reset();
  }

  std::string verb;
  std::string url;
  /// Seconds: of the whole transfer, or of a stall when `lowSpeedTimeout` is set.
  std::uint32_t timeout = 90;
  /// Seconds.
  std::uint32_t connectTimeout = 15;
  /// "first-last", sent when not empty.
  std::string range;
  /// A stall is less than one byte a second for `timeout` seconds.
  bool lowSpeedTimeout = false;
  /// Name and value, sent in this order.
  std::vector<std::pair<std::string, std::string>> headers;
  bool followRedirects = true;
  /// Whether host names of the direct-connection domain carry their address.
  bool resolveDirectHost = true;
  /// Sent when the user name is not empty.
  std::string username;
  std::string password;
  /// Body of a POST without form parts and read callback.
  std::string postData;
  /// CA bundle; empty means the service's own.
  std::string cacert;
  /// Custom sink of the body and its data, which must live until the promise is settled.
  curl_write_callback writeCallback = nullptr;
  void* userData = nullptr;
  /// Custom source of the upload, likewise.
  curl_read_callback readCallback = nullptr;
  void* readUserData = nullptr;
  /// Bytes to upload or post.
  std::int64_t uploadSize = 0;
  /// Open binary streams that the caller owns and keeps open until the promise is
  /// settled. A download goes on behind what its file already holds.
  std::FILE* downloadFile = nullptr;
  std::FILE* uploadFile = nullptr;
  std::vector<FormPart> formParts;
  /// Final status, 0 without a response. 408 also stands for a time-out, 400 for a
  /// body over `maxDownloadSize`. After any other failure it is the status that
  /// was received, if any: see `result`.
  std::int32_t httpCode = 0;
  /// Headers of every response of the transfer, names as received.
  std::multimap<std::string, std::string> responseHeaders;
  /// Exists between submission and completion.
  EasyHandle handle;
  StringList slistHeaders;
  StringList slistResolve;
  /// Empty: no progress is reported.
  ProgressHandler progressHandler;
  /// Bytes of decoded body accepted; 0 for no limit. Holds while receiving, too.
  std::int64_t maxDownloadSize = 0;
  /// Verifies the server's certificate and host name.
  bool verifyPeer = true;
  bool http10 = false;
  /// libcurl's words for a failure.
  char error[CURL_ERROR_SIZE] = {};
  /// No request and response lines in the log.
  bool quiet = false;
  /// Made at submission; given up (it would keep this context alive) when it is settled.
  std::shared_ptr<Promise<std::shared_ptr<HttpContext>>> promise;
  /// The decoded response body, when no other sink is given.
  std::string body;

  // What the client keeps beside the request.

  /// Ever: what a transfer leaves behind would get into the next one.
  bool submitted = false;
  /// How the transfer ended, for callers that must tell a complete body from one
  /// that broke off.
  CURLcode result = CURLE_OK;
  /// The multipart post made of `formParts`.
  Form form;
  /// Decoded body bytes taken so far, counted while `maxDownloadSize` is set.
  std::int64_t receivedSize = 0;
  bool oversize = false;
  std::size_t receivedHeaderBytes = 0;
  std::size_t receivedHeaderLines = 0;
};

}  // namespace zarn
