#include "http/http_options.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>

#include "http/curl_exception.h"
#include "http/http_callbacks.h"
#include "support/recording_log.h"
#include "util/file_utils.h"

namespace zarn::testing {
namespace {

constexpr char kUrl[] = "https://10-0-0-5.abc.zarn.direct:8443/p";

/// The options of a prepared request by name, as set last; pointers are just "set".
std::map<std::string, std::string> settingsOf(const std::shared_ptr<HttpContext>& ctx) {
  std::map<std::string, std::string> settings;
  prepareHandle(ctx, [&](CURL*, CURLoption option, const OptionValue& value) {
    std::string& text = settings[curl_easy_option_by_id(option)->name] = "set";
    if (const auto* number = std::get_if<std::int64_t>(&value)) text = std::to_string(*number);
    if (const auto* chars = std::get_if<const char*>(&value)) text = *chars == nullptr ? "null" : *chars;
    return CURLE_OK;
  });
  return settings;
}

/// What no test server can show.
TEST(HttpOptions, BoundAndSecureARequest) {
  auto settings = settingsOf(HttpContext::create(kUrl, "GET"));
  for (const auto& [name, value] : {std::pair{"TIMEOUT", "90"},
                                    {"CONNECTTIMEOUT", "15"},
                                    {"NOSIGNAL", "1"},
                                    {"PROTOCOLS_STR", "http,https"},
                                    {"REDIR_PROTOCOLS_STR", "https"},
                                    {"SSLVERSION", "6"},
                                    {"QUICK_EXIT", "1"},
                                    {"CAPATH", "null"}}) {
    EXPECT_EQ(settings[name], value) << name;
  }
  EXPECT_EQ(settings["CAINFO"], FileUtils::certificateFile());
  EXPECT_EQ(settings.count("SSL_VERIFYPEER") + settings.count("SSL_VERIFYHOST"), 0U);
  settings = settingsOf(HttpContext::create("http://127.0.0.1/", "GET"));
  EXPECT_EQ(settings["REDIR_PROTOCOLS_STR"], "http,https");
}

TEST(HttpOptions, ARequestThatCannotBeMadeSafeIsNotSent) {
  const RecordingLog log;
  for (const CURLoption unsafe : {CURLOPT_PROTOCOLS_STR, CURLOPT_REDIR_PROTOCOLS_STR, CURLOPT_SSLVERSION,
                                  CURLOPT_QUICK_EXIT, CURLOPT_CAPATH}) {
    const auto refuse = [&](CURL*, CURLoption option, const OptionValue&) {
      return option == unsafe ? CURLE_NOT_BUILT_IN : CURLE_OK;
    };
    EXPECT_THROW(prepareHandle(HttpContext::create(kUrl, "GET"), refuse), CURLException);
  }
}

TEST(HttpOptions, DirectHosts) {
  const std::pair<const char*, const char*> cases[] = {
      {"https://10-0-0-5.abc.zarn.direct:8443/p?q#f", "10-0-0-5.abc.zarn.direct:8443:10.0.0.5"},
      {"https://user:pw@10-0-0-5.zarn.direct:08443", "10-0-0-5.zarn.direct:8443:10.0.0.5"},
      {"https://2001-db8-0-0-0-0-0-1.a.zarn.direct:1/",
       "2001-db8-0-0-0-0-0-1.a.zarn.direct:1:2001:db8:0:0:0:0:0:1"},
      {"https://10-0-0-5.abc.zarn.direct/p", ""},
      {"https://10-0-5.abc.zarn.direct:8443/p", ""},
      {"https://10-0-0-5zarn.direct:8443/", ""},
      {"https://10-0-0-5.abc.zarn.direct.example:8443/", ""},
      {"https://evil.example:8443/10-0-0-5.zarn.direct:1", ""},
      {"https://10-0-0-5.abc.zarn.direct:99999/", ""},
      {"no URL", ""},
  };
  for (const auto& [url, entry] : cases) EXPECT_EQ(directResolveEntry(url).value_or(""), entry) << url;
}

TEST(HttpCallbacks, HeaderLines) {
  const auto ctx = HttpContext::create(kUrl, "GET");
  for (std::string line : {"HTTP/1.1 200 OK\r\n", "Name:   value \r\n", "Tabs:\t a:b\t\r\n\n", "Bare:\r\n",
                           "Open: x", "Inner: a\r b\r\n", "\r\n"}) {
    EXPECT_EQ(HeaderReceived(line.data(), 1, line.size(), ctx.get()), line.size());
  }
  using Headers = decltype(ctx->responseHeaders);
  EXPECT_EQ(ctx->responseHeaders,
            (Headers{{"Bare", ""}, {"Inner", "a\r b"}, {"Name", "value"}, {"Open", "x"}, {"Tabs", "a:b"}}));
}

TEST(HttpCallbacks, TakeNoMoreThanTheyShould) {
  const RecordingLog log;
  for (const std::size_t length : {std::size_t{10}, std::size_t{9000}}) {
    const auto ctx = HttpContext::create(kUrl, "GET");
    std::string line = "A: " + std::string(length, 'b');
    std::size_t taken = 0;
    while (taken < 10'000 && HeaderReceived(line.data(), 1, line.size(), ctx.get()) != 0) ++taken;
    EXPECT_EQ(taken, length == 10 ? kMaxHeaderLines : kMaxHeaderBytes / line.size());
  }
  EXPECT_EQ(log.count("HttpClient: Exception thrown in HeaderReceived: Too many response headers"), 2);

  const auto ctx = HttpContext::create(kUrl, "GET");
  ctx->maxDownloadSize = 6;
  char data[] = "abcd";
  constexpr auto overflowing = std::numeric_limits<std::size_t>::max();
  EXPECT_EQ(HeaderReceived(data, overflowing, 2, ctx.get()), 0U);
  EXPECT_EQ(simple_write_callback(data, overflowing, 2, ctx.get()), 0U);
  EXPECT_EQ(boundedWriteCallback(data, 1, 4, ctx.get()), 4U);
  EXPECT_EQ(boundedWriteCallback(data, 1, 3, ctx.get()), 0U);
  EXPECT_TRUE(ctx->oversize);
  EXPECT_EQ(boundedWriteCallback(data, 1, 2, ctx.get()), 2U);
  EXPECT_EQ(ctx->body, "abcdab");
}

}  // namespace
}  // namespace zarn::testing
