#include "http/http_options.h"

#include <algorithm>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include "http/http_transfer.h"
#include "os/files.h"
#include "os/text.h"
#include "util/file_utils.h"
#include "util/logging.h"
#include "util/product_version.h"

// An option, its value and the call's own words for the log. The values below are
// spelled the way the log shows them.
#define ZARN_OPTION(option, value) option, value, "curl_easy_setopt(handle, " #option ", " #value ")"

namespace zarn {
namespace {

using Context = std::shared_ptr<HttpContext>;

constexpr std::string_view kDirectDomainSuffix = ".zarn.direct";

class Options {
 public:
  Options(CURL* handle, const SetOption& setOption) : handle_(handle), setOption_(setOption) {}

  CURLcode set(CURLoption option, const OptionValue& value, const char* call) const {
    const CURLcode code = setOption_(handle_, option, value);
    logFailure(call, code);
    return code;
  }

  /// For options without which the request must not be sent.
  void require(CURLoption option, const OptionValue& value, const char* call) const {
    CURLException::throwOnFailure(set(option, value, call));
  }

  template <typename Code>
  static void logFailure(const char* call, Code code) {
    const int number = static_cast<int>(code);
    if (number != 0) logLine(LogLevel::Error, "Error issuing %s: %d", call, number);
  }

 private:
  CURL* handle_;
  const SetOption& setOption_;
};

/// Spelled as in the call's words in the log.
std::string GetCertificateFile() {
  return FileUtils::certificateFile();
}

void setTarget(const Options& options, const Context& ctx) {
  options.set(ZARN_OPTION(CURLOPT_URL, ctx->url.c_str()));
  if (ctx->lowSpeedTimeout) {
    options.set(ZARN_OPTION(CURLOPT_LOW_SPEED_LIMIT, 1));
    options.set(ZARN_OPTION(CURLOPT_LOW_SPEED_TIME, ctx->timeout));
  } else {
    options.set(ZARN_OPTION(CURLOPT_TIMEOUT, ctx->timeout));
  }
  options.set(ZARN_OPTION(CURLOPT_CONNECTTIMEOUT, ctx->connectTimeout));
}

void setBehaviour(const Options& options, const Context& ctx) {
  options.set(ZARN_OPTION(CURLOPT_TRANSFERTEXT, 0));
  options.set(ZARN_OPTION(CURLOPT_HEADER, 0));
  options.set(ZARN_OPTION(CURLOPT_FOLLOWLOCATION, ctx->followRedirects ? 1 : 0));
  options.set(ZARN_OPTION(CURLOPT_MAXREDIRS, 8));
  options.set(ZARN_OPTION(CURLOPT_NOSIGNAL, 1));
  options.set(ZARN_OPTION(CURLOPT_USERAGENT, formatPrintf("ZarnMediaServer/%s", kVersion).c_str()));
  if (ctx->http10) options.set(ZARN_OPTION(CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_0));
  options.set(ZARN_OPTION(CURLOPT_ACCEPT_ENCODING, "gzip"));
  if (!ctx->range.empty()) options.set(ZARN_OPTION(CURLOPT_RANGE, ctx->range.c_str()));
  if (ctx->verifyPeer) {
    options.set(ZARN_OPTION(CURLOPT_CAINFO,
                            ctx->cacert.empty() ? GetCertificateFile().c_str() : ctx->cacert.c_str()));
  }
  if (ctx->verb != "GET" && ctx->verb != "POST") {
    options.set(ZARN_OPTION(CURLOPT_CUSTOMREQUEST, ctx->verb.c_str()));
  }
}

void setBodySink(const Options& options, const Context& ctx) {
  if (ctx->downloadFile != nullptr) {
    options.set(ZARN_OPTION(CURLOPT_WRITEDATA, ctx->downloadFile));
    // A download that broke off goes on behind what the file holds.
    const std::int64_t size = os::seekToEnd(*ctx->downloadFile);
    if (size > 0) options.set(ZARN_OPTION(CURLOPT_RESUME_FROM_LARGE, size));
  } else if (ctx->writeCallback == nullptr) {
    options.set(ZARN_OPTION(CURLOPT_WRITEDATA, ctx.get()));
    options.set(ZARN_OPTION(CURLOPT_WRITEFUNCTION, simple_write_callback));
  } else {
    options.set(ZARN_OPTION(CURLOPT_WRITEDATA, ctx->userData));
    options.set(ZARN_OPTION(CURLOPT_WRITEFUNCTION, ctx->writeCallback));
  }
}

CURLFORMcode addFormPart(curl_httppost** first, curl_httppost** last, const FormPart& part,
                         const HttpContext& ctx) {
  const auto length = static_cast<curl_off_t>(part.data.size());
  const char* const name = part.name.c_str();
  switch (part.kind) {
    case FormPart::Kind::Contents:
      return curl_formadd(first, last, CURLFORM_COPYNAME, name, CURLFORM_CONTENTLEN, length,
                          CURLFORM_COPYCONTENTS, part.data.c_str(), CURLFORM_END);
    case FormPart::Kind::File:
      return curl_formadd(first, last, CURLFORM_COPYNAME, name, CURLFORM_FILE, part.data.c_str(),
                          CURLFORM_END);
    case FormPart::Kind::Buffer:
      return curl_formadd(first, last, CURLFORM_COPYNAME, name, CURLFORM_BUFFER, part.fileName.c_str(),
                          CURLFORM_BUFFERPTR, part.data.data(), CURLFORM_BUFFERLENGTH,
                          static_cast<long>(length), CURLFORM_END);
    case FormPart::Kind::Stream:
      return curl_formadd(first, last, CURLFORM_COPYNAME, name, CURLFORM_STREAM, ctx.readUserData,
                          CURLFORM_CONTENTLEN, static_cast<curl_off_t>(ctx.uploadSize), CURLFORM_END);
  }
  return CURL_FORMADD_UNKNOWN_OPTION;
}

void setForm(const Options& options, const Context& ctx) {
  curl_httppost* first = nullptr;
  curl_httppost* last = nullptr;
  for (const FormPart& part : ctx->formParts) {
    Options::logFailure("curl_formadd(&first, &last, ...)", addFormPart(&first, &last, part, *ctx));
    if (part.kind == FormPart::Kind::Stream) {
      options.set(ZARN_OPTION(CURLOPT_READFUNCTION, ctx->readCallback));
    }
  }
  ctx->form.reset(first);
  options.set(ZARN_OPTION(CURLOPT_HTTPPOST, first));
}

/// A POST from a source of the caller's own; without its length libcurl would send chunks.
void setPostSize(const Options& options, const Context& ctx) {
  if (ctx->verb != "POST") return;
  options.set(ZARN_OPTION(CURLOPT_POST, 1));
  options.set(ZARN_OPTION(CURLOPT_POSTFIELDSIZE_LARGE, ctx->uploadSize));
}

void setBodySource(const Options& options, const Context& ctx) {
  if (!ctx->formParts.empty()) {
    setForm(options, ctx);
  } else if (ctx->readCallback == nullptr && ctx->uploadFile != nullptr) {
    options.set(ZARN_OPTION(CURLOPT_READDATA, ctx->uploadFile));
    options.set(ZARN_OPTION(CURLOPT_INFILESIZE_LARGE, ctx->uploadSize));
    setPostSize(options, ctx);
  } else if (ctx->readCallback != nullptr) {
    options.set(ZARN_OPTION(CURLOPT_READDATA, ctx->readUserData));
    options.set(ZARN_OPTION(CURLOPT_READFUNCTION, ctx->readCallback));
    options.set(ZARN_OPTION(CURLOPT_INFILESIZE_LARGE, ctx->uploadSize));
    setPostSize(options, ctx);
  } else if (ctx->verb == "PUT") {
    const void* const nothing = nullptr;
    options.set(CURLOPT_INFILE, nothing, "curl_easy_setopt(handle, CURLOPT_INFILE, NULL)");
    options.set(ZARN_OPTION(CURLOPT_INFILESIZE, 0));
  } else if (ctx->verb == "POST") {
    options.set(ZARN_OPTION(CURLOPT_POST, 1));
    options.set(ZARN_OPTION(CURLOPT_POSTFIELDS, ctx->postData.c_str()));
  }
}

void setCredentialsAndMethod(const Options& options, const Context& ctx) {
  if (!ctx->username.empty()) {
    options.set(ZARN_OPTION(CURLOPT_USERNAME, ctx->username.c_str()));
    options.set(ZARN_OPTION(CURLOPT_PASSWORD, ctx->password.c_str()));
  }
  if (ctx->verb == "PUT" && ctx->formParts.empty()) options.set(ZARN_OPTION(CURLOPT_UPLOAD, true));
  if (ctx->verb == "HEAD") options.set(ZARN_OPTION(CURLOPT_NOBODY, 1));
}

void append(StringList& list, const std::string& line) {
  curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
  if (longer == nullptr) throw std::bad_alloc();
  // The list's head stays the same once there is one.
  if (!list) list.reset(longer);
}

void setHeaders(const Options& options, const Context& ctx) {
  if (ctx->headers.empty()) return;
  for (const auto& [name, value] : ctx->headers) {
    std::string line = name;
    line.append(": ").append(value);
    append(ctx->slistHeaders, line);
  }
  options.set(CURLOPT_HTTPHEADER, ctx->slistHeaders.get(),
              "curl_easy_setopt(handle, CURLOPT_HTTPHEADER, ctx->slistHeaders)");
}

void setDirectHost(const Options& options, const Context& ctx) {
  if (!ctx->resolveDirectHost) return;
  const auto entry = directResolveEntry(ctx->url);
  if (!entry) return;
  append(ctx->slistResolve, *entry);
  options.set(CURLOPT_RESOLVE, ctx->slistResolve.get(),
              "curl_easy_setopt(handle, CURLOPT_RESOLVE, ctx->slistResolve)");
}

void setReports(const Options& options, const Context& ctx) {
  options.set(ZARN_OPTION(CURLOPT_WRITEHEADER, ctx.get()));
  options.set(ZARN_OPTION(CURLOPT_HEADERFUNCTION, HeaderReceived));
  if (ctx->progressHandler) {
    options.set(ZARN_OPTION(CURLOPT_NOPROGRESS, 0));
    options.set(ZARN_OPTION(CURLOPT_PROGRESSFUNCTION, ProgressCallback));
    options.set(ZARN_OPTION(CURLOPT_PROGRESSDATA, ctx.get()));
  }
  options.set(ZARN_OPTION(CURLOPT_ERRORBUFFER, ctx->error));
}

void setLimitsAndTls(const Options& options, const Context& ctx) {
  if (ctx->maxDownloadSize != 0) options.set(ZARN_OPTION(CURLOPT_MAXFILESIZE_LARGE, ctx->maxDownloadSize));
  if (!ctx->verifyPeer) {
    options.set(ZARN_OPTION(CURLOPT_SSL_VERIFYPEER, false));
    options.set(ZARN_OPTION(CURLOPT_SSL_VERIFYHOST, 0));
  }
  options.set(ZARN_OPTION(CURLOPT_SSL_CTX_FUNCTION, SSLCTXCallback));
  constexpr long shortestLife = 1;  // seconds; 0 would leave the kept ones for the request after this
  if (mayAuthoritiesBeDamaged()) options.set(ZARN_OPTION(CURLOPT_CA_CACHE_TIMEOUT, shortestLife));
}

Url parse(std::string_view url) {
  Url parsed(curl_url());
  const std::string text(url);
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return nullptr;
  return parsed;
}

/// Empty when the URL does not name the part.
std::string partOf(const Url& url, CURLUPart part) {
  char* text = nullptr;
  if (!url || curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) return {};
  return CurlText(text).get();
}

/// What keeps a request safe from the network. No other scheme than http and
/// https, and what begins on https never leaves it; TLS 1.2 at least; no
/// certificate directory beside the CA bundle; a size limit that holds while
/// receiving, since libcurl's own checks announced lengths only.
///
/// Time-outs hold while a name is resolved, too: a transfer that ends then leaves the
/// thread that asks the system's resolver behind, which ends when it is answered.
/// Otherwise libcurl joins it, on the one thread of all transfers.
///
/// Proxies named in the environment are honoured: only an administrator sets the
/// environment of a service, and TLS is verified through a proxy all the same.
void setSafety(const Options& options, const Context& ctx) {
  const bool plain = partOf(parse(ctx->url), CURLUPART_SCHEME) == "http";
  options.require(ZARN_OPTION(CURLOPT_PROTOCOLS_STR, "http,https"));
  options.require(ZARN_OPTION(CURLOPT_REDIR_PROTOCOLS_STR, plain ? "http,https" : "https"));
  options.require(ZARN_OPTION(CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2));
  if (ctx->verifyPeer) {
    const char* const none = nullptr;
    options.require(ZARN_OPTION(CURLOPT_CAPATH, none));
  }
  options.require(ZARN_OPTION(CURLOPT_QUICK_EXIT, 1));
  if (ctx->maxDownloadSize > 0) {
    options.require(ZARN_OPTION(CURLOPT_WRITEDATA, ctx.get()));
    options.require(ZARN_OPTION(CURLOPT_WRITEFUNCTION, boundedWriteCallback));
  }
}

}  // namespace

CURLcode setEasyOption(CURL* handle, CURLoption option, const OptionValue& value) {
  return std::visit(
      [&](auto content) {
        if constexpr (std::is_same_v<decltype(content), std::int64_t>) {
          if (option >= CURLOPTTYPE_OFF_T) {
            return curl_easy_setopt(handle, option, static_cast<curl_off_t>(content));
          }
          if (!std::in_range<long>(content)) return CURLE_BAD_FUNCTION_ARGUMENT;
          return curl_easy_setopt(handle, option, static_cast<long>(content));
        } else {
          return curl_easy_setopt(handle, option, content);
        }
      },
      value);
}

void prepareHandle(const std::shared_ptr<HttpContext>& ctx, const SetOption& setOption) {
  initializeCurl();
  ctx->handle.reset(curl_easy_init());
  if (!ctx->handle) throw std::bad_alloc();
  const Options options(ctx->handle.get(), setOption);
  setTarget(options, ctx);
  setBehaviour(options, ctx);
  setBodySink(options, ctx);
  setBodySource(options, ctx);
  setCredentialsAndMethod(options, ctx);
  setHeaders(options, ctx);
  setDirectHost(options, ctx);
  setReports(options, ctx);
  setLimitsAndTls(options, ctx);
  setSafety(options, ctx);
}

std::optional<std::string> directResolveEntry(std::string_view url) {
  const Url parsed = parse(url);
  const std::string host = partOf(parsed, CURLUPART_HOST);
  if (!std::string_view(host).ends_with(kDirectDomainSuffix)) return std::nullopt;

  std::string address = host.substr(0, host.find('.'));
  const auto hyphens = std::count(address.begin(), address.end(), '-');
  if (hyphens != 3 && hyphens != 7) return std::nullopt;
  // An IPv4 address has four numbers, a complete IPv6 address eight; nothing else is guessed.
  std::replace(address.begin(), address.end(), '-', hyphens == 3 ? '.' : ':');

  const auto port = os::parseNumber<std::uint16_t>(partOf(parsed, CURLUPART_PORT));
  if (!port) return std::nullopt;
  return host + ":" + std::to_string(*port) + ":" + address;
}

}  // namespace zarn
