#include "http/http_completion.h"

#include <string>
#include <string_view>
#include <utility>

#include "util/logging.h"
#include "util/printable.h"

namespace zarn {
namespace {

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

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && curl_strnequal(left.data(), right.data(), left.size()) != 0;
}

/// The body has been decoded already.
void removeGzipHeader(HttpContext& ctx) {
  std::erase_if(ctx.responseHeaders, [](const auto& header) {
    return equalsIgnoringCase(header.first, "Content-Encoding") && header.second == "gzip";
  });
}

void finishTransfer(HttpContext& ctx, CURLcode result) {
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

void completeTransfer(const std::shared_ptr<HttpContext>& ctx, CURLcode result) {
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
