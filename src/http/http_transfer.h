// A transfer while it runs, as libcurl reports it, and its end.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <exception>
#include <memory>

#include "http/http_context.h"

namespace zarn {

/// Bounds of the headers of one request, all its responses together.
inline constexpr std::size_t kMaxHeaderBytes = 256 * 1024;
inline constexpr std::size_t kMaxHeaderLines = 512;

// Called by libcurl on the runner's thread. The last argument of the sinks, and the first
// of the progress callback, is the request's HttpContext. Nothing is thrown into libcurl.

/// Appends to the context's body.
std::size_t simple_write_callback(char* data, std::size_t size, std::size_t count, void* context) noexcept;

/// Hands on to whatever sink the context has, as long as `maxDownloadSize` allows;
/// past it, marks the context as over-size and ends the transfer.
std::size_t boundedWriteCallback(char* data, std::size_t size, std::size_t count, void* context) noexcept;

/// Adds a header line to the context's response headers.
std::size_t HeaderReceived(char* buffer, std::size_t size, std::size_t count, void* context) noexcept;

/// Asks the context's progress handler whether to go on (0) or not (1). Throws
/// std::invalid_argument without a context, which libcurl never leaves out.
int ProgressCallback(void* context, double downloadTotal, double downloadNow, double uploadTotal,
                     double uploadNow);

/// Prepares a new TLS context. With the preference TLSKeyLogPath the keys of its connections
/// go to that file, which is opened once per process.
CURLcode SSLCTXCallback(CURL* handle, void* tlsContext, void* unused) noexcept;

// Called on a thread of the runner's pool, or where the pool takes nothing.

/// Makes the result of a transfer a status and a log line, and settles the context's
/// promise with the context, after its easy handle is gone. Should that fail half-way, the promise is
/// rejected and the failure thrown.
void completeTransfer(const std::shared_ptr<HttpContext>& ctx, CURLcode result);

/// Releases the easy handle and rejects the promise of a request that was never performed.
void rejectTransfer(const std::shared_ptr<HttpContext>& ctx, std::exception_ptr reason);

}  // namespace zarn
