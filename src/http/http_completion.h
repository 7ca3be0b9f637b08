// What follows a transfer: its result becomes a status, a log line and a settled
// promise.
#pragma once

#include <curl/curl.h>

#include <exception>
#include <memory>

#include "http/http_context.h"

namespace zarn {

/// Settles the context's promise with the context, after its easy handle is gone.
/// Should that fail half-way, the promise is rejected and the failure thrown.
void completeTransfer(const std::shared_ptr<HttpContext>& ctx, CURLcode result);

/// Releases the easy handle and rejects the promise of a request that was never performed.
void rejectTransfer(const std::shared_ptr<HttpContext>& ctx, std::exception_ptr reason);

}  // namespace zarn
