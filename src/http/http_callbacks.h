// What libcurl calls while a transfer runs, on the runner's thread. The last
// argument of the sinks, and the first of the progress callback, is the request's
// HttpContext. Nothing is thrown into libcurl.
#pragma once

#include <curl/curl.h>

#include <cstddef>

namespace zarn {

/// Bounds of the headers of one request, all its responses together.
inline constexpr std::size_t kMaxHeaderBytes = 256 * 1024;
inline constexpr std::size_t kMaxHeaderLines = 512;

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

/// Prepares a new TLS context.
CURLcode SSLCTXCallback(CURL* handle, void* tlsContext, void* unused) noexcept;

}  // namespace zarn
