#include "http/http_transfer.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "os/text.h"
#include "prefs/preferences.h"
#include "util/exceptions.h"
#include "util/file_utils.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {
namespace {

// ---- Callbacks -------------------------------------------------------------------------

std::size_t product(std::size_t size, std::size_t count) {
  if (count != 0 && size > std::numeric_limits<std::size_t>::max() / count) {
    throw std::overflow_error("Overflow multiplying buffer size");
  }
  return size * count;
}

HttpContext& contextOf(void* context) {
  if (context == nullptr) throw std::invalid_argument("Missing userdata");
  return *static_cast<HttpContext*>(context);
}

std::string_view trimmed(std::string_view text, std::string_view unwanted) {
  const std::size_t first = text.find_first_not_of(unwanted);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(unwanted) - first + 1);
}

/// Header fields arrive one by one, and libcurl's own limit is per response.
void countHeader(HttpContext& ctx, std::size_t length) {
  ctx.receivedHeaderBytes += length;
  ++ctx.receivedHeaderLines;
  if (ctx.receivedHeaderBytes > kMaxHeaderBytes || ctx.receivedHeaderLines > kMaxHeaderLines) {
    throw std::length_error("Too many response headers");
  }
}

void addHeader(HttpContext& ctx, std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  std::string_view value = line.substr(colon + 1);
  value = value.substr(0, value.find_last_not_of("\r\n") + 1);
  ctx.responseHeaders.emplace(line.substr(0, colon), trimmed(value, " \t"));
}

/// libcurl has refused a length over the request's limit by then.
void reserveExpectedLength(HttpContext& ctx) {
  curl_off_t length = 0;
  if (curl_easy_getinfo(ctx.handle.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length) != CURLE_OK) return;
  if (length > 0) ctx.body.reserve(static_cast<std::size_t>(length));
}

std::size_t writeToSink(HttpContext& ctx, char* data, std::size_t size, std::size_t count) {
  if (ctx.downloadFile != nullptr) return size * std::fwrite(data, size, count, ctx.downloadFile);
  if (ctx.writeCallback != nullptr) return ctx.writeCallback(data, size, count, ctx.userData);
  return simple_write_callback(data, size, count, &ctx);
}

/// Runs `work`; `failed` when it throws, which libcurl could not catch.
template <typename Work>
std::invoke_result_t<Work> guarded(const char* callback, std::invoke_result_t<Work> failed,
                                   const Work& work) noexcept {
  try {
    return work();
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "HttpClient: Exception thrown in %s: %s", callback, printable(error.what()));
    });
  } catch (...) {
    quietly([&] { logLine(LogLevel::Error, "HttpClient: Unknown exception thrown in %s", callback); });
  }
  return failed;
}

// ---- The TLS key log: session keys for whoever debugs a recorded connection ------------

/// Null without the preference, and when its file cannot be had.
FileUtils::ScopedFile openKeyLog() {
  const std::string path = Preferences::instance().get(preference::kTlsKeyLogPath);
  if (path.empty()) return nullptr;
  auto file = FileUtils::safeOpen(path, "ab", false, FileUtils::Links::Refuse);
  if (file) static_cast<void>(std::setvbuf(file.get(), nullptr, _IONBF, 0));
  return file;
}

std::FILE* keyLog() {
  static std::FILE* const file = openKeyLog().release();  // open as long as the process lives
  return file;
}

void writeKeyLine(const SSL* /*connection*/, const char* line) {
  // OpenSSL, which called, knows no exceptions.
  quietly([&] {
    // One call, so that lines of several threads stay whole.
    const std::string text = std::string(line) + "\n";
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), keyLog()));  // a help for debugging only
  });
}

// ---- The end of a transfer -----------------------------------------------------------

constexpr long kSimulatedTimeout = 408;
constexpr long kSimulatedOversize = 400;

// `handle` and `ctx` are spelled as in the text that a failure is logged with.
template <typename T>
void readInfo(CURL* handle, CURLINFO info, T* value, const char* call) {
  const CURLcode code = curl_easy_getinfo(handle, info, value);
  if (code != CURLE_OK) logLine(LogLevel::Error, "Error issuing %s: %d", call, static_cast<int>(code));
}

const char* versionText(long version) {
  switch (version) {
    case CURL_HTTP_VERSION_1_0:
      return "1.0";
    case CURL_HTTP_VERSION_1_1:
      return "1.1";
    case CURL_HTTP_VERSION_2_0:
      return "2.0";
    case CURL_HTTP_VERSION_3:
      return "3";
    default:
      return "?";
  }
}

void logResponse(const HttpContext& ctx) {
  CURL* const handle = ctx.handle.get();
  long httpVersion = 0;
  long connects = 0;
  double time = 0;
  readInfo(handle, CURLINFO_HTTP_VERSION, &httpVersion,
           "curl_easy_getinfo(handle, CURLINFO_HTTP_VERSION, &httpVersion)");
  readInfo(handle, CURLINFO_NUM_CONNECTS, &connects,
           "curl_easy_getinfo(handle, CURLINFO_NUM_CONNECTS, &connects)");
  readInfo(handle, CURLINFO_TOTAL_TIME, &time, "curl_easy_getinfo(handle, CURLINFO_TOTAL_TIME, &time)");
  logLine(LogLevel::Debug, "HTTP/%s (%.1fs) %ld response from %s %s%s", versionText(httpVersion), time,
          ctx.httpCode, printable(ctx.verb), printable(ctx.url), connects == 0 ? " (reused)" : "");
}

void logFailure(const HttpContext& ctx) {
  const std::string verb = printable(ctx.verb);
  const std::string url = printable(ctx.url);
  const int code = static_cast<int>(ctx.result);
  const char* const words = curl_easy_strerror(ctx.result);
  if (ctx.result == CURLE_GOT_NOTHING) {
    logLine(LogLevel::Warn,
            "HTTP error requesting %s %s (%d, %s). Network appears to be configured for jumbo frames.", verb,
            url, code, words);
  } else {
    logLine(LogLevel::Warn, "HTTP error requesting %s %s (%d, %s) (%s)", verb, url, code, words,
            printable(ctx.error));
  }
}

/// The status that the requester sees, which for two failures no server sent.
void judge(HttpContext& ctx) {
  switch (ctx.result) {
    case CURLE_OK:
      if (!ctx.quiet) logResponse(ctx);
      break;
    case CURLE_OPERATION_TIMEDOUT:
      if (!ctx.quiet) logLine(LogLevel::Debug, "HTTP simulating 408 after curl timeout");
      ctx.httpCode = kSimulatedTimeout;
      break;
    case CURLE_FILESIZE_EXCEEDED:
      if (!ctx.quiet) logLine(LogLevel::Warn, "HTTP simulating 400 after max file size exceeded");
      ctx.httpCode = kSimulatedOversize;
      break;
    default:
      if (!ctx.quiet) logFailure(ctx);
  }
}

/// The body has been decoded already: whoever reads both would decode it twice.
void removeGzipHeader(HttpContext& ctx) {
  std::erase_if(ctx.responseHeaders, [](const auto& header) {
    return os::equalsIgnoringCase(header.first, "Content-Encoding") && header.second == "gzip";
  });
}

void finishTransfer(HttpContext& ctx, CURLcode result) {
  // Our own limit ended the transfer with a write error, which would say nothing.
  ctx.result = ctx.oversize ? CURLE_FILESIZE_EXCEEDED : result;
  long responseCode = 0;
  readInfo(ctx.handle.get(), CURLINFO_RESPONSE_CODE, &responseCode,
           "curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &ctx->httpCode)");
  ctx.httpCode = static_cast<std::int32_t>(responseCode);
  judge(ctx);
  removeGzipHeader(ctx);
  ctx.releaseTransfer();
}

}  // namespace

std::size_t simple_write_callback(char* data, std::size_t size, std::size_t count, void* context) noexcept {
  if (size == 0 || count == 0 || context == nullptr) return 0;
  return guarded("simple_write_callback", std::size_t{0}, [&] {
    HttpContext& ctx = contextOf(context);
    const std::size_t length = product(size, count);
    if (ctx.body.empty()) reserveExpectedLength(ctx);
    ctx.body.append(data, length);
    return length;
  });
}

std::size_t boundedWriteCallback(char* data, std::size_t size, std::size_t count, void* context) noexcept {
  return guarded("boundedWriteCallback", std::size_t{0}, [&]() -> std::size_t {
    HttpContext& ctx = contextOf(context);
    const std::size_t length = product(size, count);
    if (length > static_cast<std::size_t>(ctx.maxDownloadSize - ctx.receivedSize)) {
      ctx.oversize = true;
      return 0;
    }
    const std::size_t taken = writeToSink(ctx, data, size, count);
    // A sink may also ask to be called again later with the same bytes.
    if (taken == length) ctx.receivedSize += static_cast<std::int64_t>(length);
    return taken;
  });
}

std::size_t HeaderReceived(char* buffer, std::size_t size, std::size_t count, void* context) noexcept {
  return guarded("HeaderReceived", std::size_t{0}, [&] {
    HttpContext& ctx = contextOf(context);
    const std::size_t length = product(size, count);
    countHeader(ctx, length);
    addHeader(ctx, {buffer, length});
    return length;
  });
}

int ProgressCallback(void* context, double downloadTotal, double downloadNow, double uploadTotal,
                     double uploadNow) {
  const HttpContext& ctx = contextOf(context);
  return guarded("ProgressCallback", 1, [&] {
    // A server may announce any length; beyond this one a number cannot be converted.
    constexpr double most = 9e18;
    const auto whole = [most](double amount) { return static_cast<std::int64_t>(std::min(amount, most)); };
    const bool goOn =
        ctx.progressHandler(whole(downloadTotal), whole(downloadNow), whole(uploadTotal), whole(uploadNow));
    return goOn ? 0 : 1;
  });
}

CURLcode SSLCTXCallback(CURL* /*handle*/, void* tlsContext, void* /*unused*/) noexcept {
  auto* const context = static_cast<SSL_CTX*>(tlsContext);
  // Nothing here needs a second handshake, which has been a way in for injected data
  // and for exhaustion; compression before encryption tells secrets by their length.
  SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
  try {
    if (keyLog() != nullptr) SSL_CTX_set_keylog_callback(context, writeKeyLine);
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "HttpClient: TLS key log is not available: %s", printable(error.what()));
    });
  }
  return CURLE_OK;
}

void completeTransfer(const std::shared_ptr<HttpContext>& ctx, CURLcode result) {
  noteOutcome(result);
  try {
    finishTransfer(*ctx, result);
  } catch (...) {
    rejectTransfer(ctx, std::current_exception());
    throw;
  }
  // Given up here, since promise and context would keep each other alive.
  if (const auto promise = std::move(ctx->promise)) promise->resolve(ctx);
}

void rejectTransfer(const std::shared_ptr<HttpContext>& ctx, std::exception_ptr reason) {
  ctx->releaseTransfer();
  if (const auto promise = std::move(ctx->promise)) promise->reject(std::move(reason));
}

}  // namespace zarn
