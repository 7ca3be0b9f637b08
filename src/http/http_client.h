// Sends HTTP requests. May be called from any thread.
#pragma once

#include <memory>

#include "http/http_client_runner.h"
#include "http/http_context.h"
#include "http/http_options.h"
#include "http/promise.h"

namespace zarn::HttpClient {

using Response = Promise<std::shared_ptr<HttpContext>>;

/// Starts the request, which is made once, and returns its promise. Never blocks on a transfer.
///
/// The promise resolves with the context itself, whatever the server or the
/// network did: time-outs, refusals and error statuses are in `httpCode`. It is
/// rejected when the request could not be started. Continuations run on a pool
/// thread, or on the calling one when the request could not be started. Throws
/// std::logic_error for a context that was submitted before, its transfer ended or not.
std::shared_ptr<Response> submit(std::shared_ptr<HttpContext> ctx);

/// The same with a runner, and a way to set options, of the caller's own (tests).
std::shared_ptr<Response> submit(std::shared_ptr<HttpContext> ctx, HttpClientRunner& runner,
                                 const SetOption& setOption = setEasyOption);

}  // namespace zarn::HttpClient
