// Turns the settings of a request into options of a libcurl easy handle.
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "http/http_context.h"

namespace zarn {

using OptionValue = std::variant<std::int64_t, const char*, const void*, curl_write_callback,
                                 curl_progress_callback, curl_ssl_ctx_callback>;

/// Sets one option of a handle; a test records and refuses instead.
using SetOption = std::function<CURLcode(CURL*, CURLoption, const OptionValue&)>;

/// The real one. Numbers are passed in the width that the option expects.
CURLcode setEasyOption(CURL* handle, CURLoption option, const OptionValue& value);

/// Gives the context a new easy handle with all its options. An option that fails
/// is logged and does not stop the request, except for those that keep it safe:
/// then CURLException is thrown. Throws std::bad_alloc without a handle.
void prepareHandle(const std::shared_ptr<HttpContext>& ctx, const SetOption& setOption = setEasyOption);

/// "host:port:address" for a URL whose host lies in the direct-connection domain
/// and whose first label is an address written with hyphens; none without a port.
[[nodiscard]] std::optional<std::string> directResolveEntry(std::string_view url);

}  // namespace zarn
