#include "http/http_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <map>
#include <string>

#include "http/curl_exception.h"
#include "http/http_callbacks.h"
#include "support/recording_log.h"
#include "util/file_utils.h"

namespace zarn::testing {
namespace {

using Settings = std::map<std::string, std::string>;

constexpr char kUrl[] = "https://10-0-0-5.abc.zarn.direct:8443/p";
constexpr char kUnset[] = "(not set)";

/// The options of a prepared request by name, as set last; pointers are just "set".
Settings settingsOf(const std::function<void(HttpContext&)>& configure) {
  const auto ctx = HttpContext::create(kUrl, "POST");
  configure(*ctx);
  Settings settings;
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
  const std::pair<std::function<void(HttpContext&)>, Settings> cases[] = {
      {[](HttpContext&) {},
       {{"TIMEOUT", "90"},
        {"CONNECTTIMEOUT", "15"},
        {"NOSIGNAL", "1"},
        {"PROTOCOLS_STR", "http,https"},
        {"REDIR_PROTOCOLS_STR", "https"},
        {"SSLVERSION", "6"},
        {"SSL_VERIFYPEER", kUnset},
        {"SSL_VERIFYHOST", kUnset},
        {"CAINFO", FileUtils::certificateFile()},
        {"CAPATH", "null"}}},
      {[](HttpContext& ctx) { ctx.url = "http://127.0.0.1/"; }, {{"REDIR_PROTOCOLS_STR", "http,https"}}},
      {[](HttpContext& ctx) { ctx.lowSpeedTimeout = true, ctx.timeout = 7; },
       {{"TIMEOUT", kUnset}, {"LOW_SPEED_LIMIT", "1"}, {"LOW_SPEED_TIME", "7"}}},
      {[](HttpContext& ctx) { ctx.http10 = true, ctx.followRedirects = false; },
       {{"HTTP_VERSION", "1"}, {"FOLLOWLOCATION", "0"}}},
      {[](HttpContext& ctx) { ctx.verifyPeer = false, ctx.resolveDirectHost = false; },
       {{"SSL_VERIFYPEER", "0"}, {"SSL_VERIFYHOST", "0"}, {"RESOLVE", kUnset}}},
      {[](HttpContext& ctx) { ctx.uploadFile = stdin, ctx.uploadSize = 5'000'000'000; },
       {{"INFILESIZE_LARGE", "5000000000"}}},
  };
  for (const auto& [configure, expected] : cases) {
    Settings actual = settingsOf(configure);
    for (const auto& [name, value] : expected)
      EXPECT_EQ(actual.emplace(name, kUnset).first->second, value) << name;
  }
}

TEST(HttpOptions, ARequestThatCannotBeMadeSafeIsNotSent) {
  const RecordingLog log;
  for (const CURLoption unsafe :
       {CURLOPT_PROTOCOLS_STR, CURLOPT_REDIR_PROTOCOLS_STR, CURLOPT_SSLVERSION, CURLOPT_CAPATH}) {
    EXPECT_THROW(prepareHandle(HttpContext::create(kUrl, "GET"),
                               [&](CURL* handle, CURLoption option, const OptionValue& value) {
                                 return option == unsafe ? CURLE_NOT_BUILT_IN
                                                         : setEasyOption(handle, option, value);
                               }),
                 CURLException);
  }
  EXPECT_EQ(log.texts()[2],
            "Error issuing curl_easy_setopt(handle, CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2): 4");
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

TEST(HttpCallbacks, ProgressStopsAtNoAndAtAnException) {
  const auto ctx = HttpContext::create(kUrl, "GET");
  ctx->progressHandler = [](auto total, auto now, auto...) {
    if (total == 0) throw std::runtime_error("broken");
    return now == 5;
  };
  EXPECT_EQ(ProgressCallback(ctx.get(), 10.0, 5.9, 3.0, 1.0), 0);
  EXPECT_EQ(ProgressCallback(ctx.get(), 10.0, 6.0, 3.0, 1.0), 1);
  EXPECT_EQ(ProgressCallback(ctx.get(), 0, 0, 0, 0), 1);
}

}  // namespace
}  // namespace zarn::testing
