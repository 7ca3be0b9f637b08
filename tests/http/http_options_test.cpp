#include "http/http_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>

#include "http/http_transfer.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "util/file_utils.h"
#include "util/version.h"

namespace zarn::testing {
namespace {

constexpr char kUrl[] = "https://10-0-0-5.abc.zarn.direct:8443/p";

std::string textOf(const OptionValue& value) {
  if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
  if (const auto* chars = std::get_if<const char*>(&value)) return *chars == nullptr ? "null" : *chars;
  const auto* pointer = std::get_if<const void*>(&value);
  return pointer != nullptr && *pointer == nullptr ? "null" : "set";
}

/// The calls of a request that has a feature, as the log shows them, and their values.
std::vector<std::string> callsFor(const std::string& features) {
  const std::pair<char, std::string> steps[] = {
      {'v', std::string("URL, ctx->url.c_str() => ") + kUrl},
      {'V', "URL, ctx->url.c_str() => http://a/"},
      {'L', "LOW_SPEED_LIMIT, 1 => 1|LOW_SPEED_TIME, ctx->timeout => 90"},
      {'T', "TIMEOUT, ctx->timeout => 90"},
      {'*', "CONNECTTIMEOUT, ctx->connectTimeout => 15|TRANSFERTEXT, 0 => 0|HEADER, 0 => 0"},
      {'S', "FOLLOWLOCATION, ctx->followRedirects ? 1 : 0 => 0"},
      {'D', "FOLLOWLOCATION, ctx->followRedirects ? 1 : 0 => 1"},
      {'*', "MAXREDIRS, 8 => 8|NOSIGNAL, 1 => 1"},
      {'*', R"(USERAGENT, formatPrintf("ZarnMediaServer/%s", kVersion).c_str() => ZarnMediaServer/)" +
                std::string(kVersion)},
      {'1', "HTTP_VERSION, CURL_HTTP_VERSION_1_0 => 1"},
      {'*', R"(ACCEPT_ENCODING, "gzip" => gzip)"},
      {'g', "RANGE, ctx->range.c_str() => 1-2"},
      {'v', "CAINFO, ctx->cacert.empty() ? GetCertificateFile().c_str() : ctx->cacert.c_str() => " +
                FileUtils::certificateFile()},
      {'p', "CUSTOMREQUEST, ctx->verb.c_str() => PUT"},
      {'H', "CUSTOMREQUEST, ctx->verb.c_str() => HEAD"},
      {'d', "WRITEDATA, ctx->downloadFile => set|RESUME_FROM_LARGE, size => 7"},
      {'b', "WRITEDATA, ctx.get() => set|WRITEFUNCTION, simple_write_callback => set"},
      {'w', "WRITEDATA, ctx->userData => null|WRITEFUNCTION, ctx->writeCallback => set"},
      {'F', "READFUNCTION, ctx->readCallback => set|HTTPPOST, first => set"},
      {'f', "READDATA, ctx->uploadFile => set|INFILESIZE_LARGE, ctx->uploadSize => 11"},
      {'R', "READDATA, ctx->readUserData => null|READFUNCTION, ctx->readCallback => set"},
      {'R', "INFILESIZE_LARGE, ctx->uploadSize => 11"},
      {'o', "POST, 1 => 1|POSTFIELDSIZE_LARGE, ctx->uploadSize => 11"},
      {'E', "INFILE, NULL => null|INFILESIZE, 0 => 0"},
      {'P', "POST, 1 => 1|POSTFIELDS, ctx->postData.c_str() => posted"},
      {'u', "USERNAME, ctx->username.c_str() => user|PASSWORD, ctx->password.c_str() => secret"},
      {'p', "UPLOAD, true => 1"},
      {'H', "NOBODY, 1 => 1"},
      {'h', "HTTPHEADER, ctx->slistHeaders => set"},
      {'D', "RESOLVE, ctx->slistResolve => set"},
      {'*', "WRITEHEADER, ctx.get() => set|HEADERFUNCTION, HeaderReceived => set"},
      {'G', "NOPROGRESS, 0 => 0|PROGRESSFUNCTION, ProgressCallback => set|PROGRESSDATA, ctx.get() => set"},
      {'*', "ERRORBUFFER, ctx->error => "},
      {'m', "MAXFILESIZE_LARGE, ctx->maxDownloadSize => 9"},
      {'V', "SSL_VERIFYPEER, false => 0|SSL_VERIFYHOST, 0 => 0"},
      {'*', R"(SSL_CTX_FUNCTION, SSLCTXCallback => set|PROTOCOLS_STR, "http,https" => http,https)"},
      {'v', R"(REDIR_PROTOCOLS_STR, plain ? "http,https" : "https" => https)"},
      {'V', R"(REDIR_PROTOCOLS_STR, plain ? "http,https" : "https" => http,https)"},
      {'*', "SSLVERSION, CURL_SSLVERSION_TLSv1_2 => 6"},
      {'v', "CAPATH, none => null"},
      {'*', "QUICK_EXIT, 1 => 1"},
      {'m', "WRITEDATA, ctx.get() => set|WRITEFUNCTION, boundedWriteCallback => set"},
  };
  std::vector<std::string> calls;
  for (const auto& [feature, texts] : steps) {
    std::istringstream step(features.find(feature) != std::string::npos ? texts : "");
    for (std::string call; std::getline(step, call, '|');) calls.push_back(call);
  }
  return calls;
}

TEST(HttpOptions, AreSetInOrderAndARefusalIsLoggedOrEndsTheRequest) {
  const TempDirectory dir;
  writeFile(dir / "file", "seven..");
  const auto file = FileUtils::safeOpen(dir / "file", "ab", false);
  const auto read = [](char*, std::size_t, std::size_t, void*) { return std::size_t{0}; };
  const struct {
    const char* verb;
    const char* features;
    std::function<void(HttpContext&)> configure;
  } cases[] = {
      {"GET", "*TDbv", [](HttpContext&) {}},
      {"POST", "*LS1gbPuhGmV",
       [](HttpContext& c) {
         c.lowSpeedTimeout = c.http10 = true, c.followRedirects = c.resolveDirectHost = c.verifyPeer = false;
         c.url = "http://a/", c.range = "1-2", c.postData = "posted", c.username = "user",
         c.password = "secret";
         c.headers = {{"A", "b"}}, c.maxDownloadSize = 9, c.progressHandler = [](auto...) { return true; };
       }},
      {"PUT", "*TDbEpv", [](HttpContext&) {}},
      {"PUT", "*TDwfpv", [&](HttpContext& c) { c.writeCallback = read, c.uploadFile = file.get(); }},
      {"POST", "*TDdfov", [&](HttpContext& c) { c.downloadFile = c.uploadFile = file.get(); }},
      {"POST", "*TDbRov", [&](HttpContext& c) { c.readCallback = read; }},
      {"POST", "*TDbFv",
       [&](HttpContext& c) {
         c.formParts = {{"a", FormPart::Kind::Stream, "", ""}};
       }},
      {"HEAD", "*TDbHv", [](HttpContext&) {}},
  };
  for (const auto& [verb, features, configure] : cases) {
    const auto calls = callsFor(features);
    for (std::size_t refused = 0; refused <= calls.size(); ++refused) {
      const RecordingLog log;
      const auto ctx = HttpContext::create(kUrl, verb);
      ctx->uploadSize = 11;
      configure(*ctx);
      std::size_t next = 0;
      const auto set = [&](CURL*, CURLoption option, const OptionValue& value) {
        const std::string& call = calls.at(next);
        EXPECT_EQ(curl_easy_option_by_name(call.substr(0, call.find(',')).c_str())->id, option) << call;
        EXPECT_EQ(textOf(value), call.substr(call.find(" => ") + 4)) << call;
        return next++ == refused ? CURLE_OUT_OF_MEMORY : CURLE_OK;
      };
      // From PROTOCOLS_STR on, the options are those without which a request is not sent.
      const auto safety = std::find_if(calls.begin(), calls.end(),
                                       [](const std::string& call) { return call.starts_with("PROTO"); });
      const auto optional = static_cast<std::size_t>(safety - calls.begin());
      if (refused < optional || refused == calls.size()) {
        EXPECT_NO_THROW(prepareHandle(ctx, set));
        EXPECT_EQ(next, calls.size());
      } else {
        EXPECT_THROW(prepareHandle(ctx, set), CURLException);
      }
      std::vector<std::string> lines;
      if (refused < calls.size())
        lines.push_back("Error issuing curl_easy_setopt(handle, CURLOPT_" +
                        calls[refused].substr(0, calls[refused].find(" => ")) + "): 27");
      EXPECT_EQ(log.texts(), lines);
    }
  }
}

TEST(HttpOptions, DirectHosts) {
  const std::pair<const char*, const char*> cases[] = {
      {"https://10-0-0-5.abc.zarn.direct:8443/p?q#f", "10-0-0-5.abc.zarn.direct:8443:10.0.0.5"},
      {"https://user:pw@10-0-0-5.zarn.direct:08443", "10-0-0-5.zarn.direct:8443:10.0.0.5"},
      {"https://1-b-0-0-0-0-0-1.a.zarn.direct:1/", "1-b-0-0-0-0-0-1.a.zarn.direct:1:1:b:0:0:0:0:0:1"},
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
