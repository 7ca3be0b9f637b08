#include "http/http_client.h"

#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "http/http_completion.h"
#include "http/quiet_hosts.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn::HttpClient {
namespace {

/// `runner` is a callable: the process's runner is not made for a request that
/// could not be prepared.
template <typename Runner>
std::shared_ptr<Response> submitTo(std::shared_ptr<HttpContext> ctx, Runner runner,
                                   const SetOption& setOption) {
  if (std::exchange(ctx->submitted, true)) throw std::logic_error("HttpContext was submitted before");
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
