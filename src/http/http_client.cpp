#include "http/http_client.h"

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "http/http_transfer.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn::HttpClient {
namespace {

// Configuration data: hosts that are asked so often that their requests would drown the
// log. Placeholders under reserved domains, for a deployment to replace.
constexpr std::array<std::string_view, 18> kQuietHosts = {
    // The publisher's: a sentinel URL, then its services.
    "https://sentinel.zarn.example/",
    "metadata.zarn.example",
    "media-provider.zarn.example",
    "metrics.zarn.example",
    "lyrics.zarn.example",
    "television-listings.zarn.example",
    "music.zarn.example",
    "geo.zarn.example",
    // Outside services that the media server uses.
    "lyrics-provider.example",
    "image-tagging.example",
    "recognition-one.music-recognition.example",
    "recognition-two.music-recognition.example",
    "film-database.example",
    "television-database.example",
    "concert-listing.example",
    "geocoder.example",
    "audio-fingerprint.example",
    "music-metadata-mirror.example",
};

/// Whether requests for the URL leave no request and response lines in the log: whether any
/// quiet host occurs in it.
bool isQuietUrl(std::string_view url) noexcept {
  return std::any_of(kQuietHosts.begin(), kQuietHosts.end(),
                     [&](std::string_view host) { return url.find(host) != std::string_view::npos; });
}

/// `runner` is a callable: the process's runner is not made for a request that
/// could not be prepared.
template <typename Runner>
std::shared_ptr<Response> submitTo(std::shared_ptr<HttpContext> ctx, Runner runner,
                                   const SetOption& setOption) {
  if (std::exchange(ctx->submitted, true)) throw std::logic_error("HttpContext was submitted before");
  // The request line below is for every request, also for one that cannot be prepared.
  std::exception_ptr failure;
  try {
    prepareHandle(ctx, setOption);
  } catch (...) {
    failure = std::current_exception();
  }
  if (isQuietUrl(ctx->url)) ctx->quiet = true;
  if (!ctx->quiet)
    logLine(LogLevel::Debug, "HTTP requesting %s %s", printable(ctx->verb), printable(ctx->url));
  // The context gives its own reference up when it is settled.
  auto promise = Response::Create();
  ctx->promise = promise;
  try {
    if (failure) std::rethrow_exception(failure);
    runner().submit(ctx);
  } catch (...) {
    rejectTransfer(ctx, std::current_exception());
  }
  return promise;
}

}  // namespace

std::shared_ptr<Response> submit(std::shared_ptr<HttpContext> ctx) {
  return submitTo(std::move(ctx), HttpClientRunner::instance, setEasyOption);
}

std::shared_ptr<Response> submit(std::shared_ptr<HttpContext> ctx, HttpClientRunner& runner,
                                 const SetOption& setOption) {
  return submitTo(
      std::move(ctx), [&]() -> HttpClientRunner& { return runner; }, setOption);
}

}  // namespace zarn::HttpClient
