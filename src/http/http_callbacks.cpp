#include "http/http_callbacks.h"

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

#include "http/http_context.h"
#include "http/tls_key_log.h"
#include "util/exceptions.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {
namespace {

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
    installTlsKeyLog(context);
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "HttpClient: TLS key log is not available: %s", printable(error.what()));
    });
  }
  return CURLE_OK;
}

}  // namespace zarn
