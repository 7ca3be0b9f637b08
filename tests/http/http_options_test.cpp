#include "http/http_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "http/curl_exception.h"
#include "http/http_callbacks.h"
#include "http/http_completion.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "util/file_utils.h"
#include "util/version.h"

namespace zarn {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Pair;
using testing::RecordingLog;
using Lines = std::vector<std::string>;
using Configure = std::function<void(HttpContext&)>;

constexpr char kUrl[] = "https://10-0-0-5.abc.zarn.direct:8443/p";

std::size_t customCallback(char*, std::size_t, std::size_t, void*) {
  return 0;
}

std::string valueText(const OptionValue& value, const HttpContext& ctx) {
  if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
  if (const auto* text = std::get_if<const char*>(&value)) return *text == nullptr ? "null" : *text;
  if (const auto* data = std::get_if<const void*>(&value)) {
    if (*data == nullptr) return "null";
    if (*data == &ctx) return "ctx";
    return *data == ctx.downloadFile || *data == ctx.uploadFile ? "file" : "data";
  }
  if (std::holds_alternative<curl_progress_callback>(value)) return "progress";
  if (std::holds_alternative<curl_ssl_ctx_callback>(value)) return "tls";
  const auto function = std::get<curl_write_callback>(value);
  if (function == simple_write_callback) return "simple";
  if (function == boundedWriteCallback) return "bounded";
  return function == HeaderReceived ? "header" : "custom";
}

/// Every option of a prepared request, in order. Those that may fail do: their
/// line is the text that was logged for them, and the value. Those that may not
/// are shown by name.
Lines optionsOf(const Configure& configure, const char* verb = "GET") {
  const RecordingLog log;
  const auto ctx = HttpContext::create(kUrl, verb);
  ctx->cacert = "/ca.pem";
  if (configure) configure(*ctx);
  Lines values;
  Lines names;
  bool safety = false;
  prepareHandle(ctx, [&](CURL*, CURLoption option, const OptionValue& value) {
    safety |= option == CURLOPT_PROTOCOLS_STR;
    values.push_back(" = " + valueText(value, *ctx));
    names.push_back(safety ? curl_easy_option_by_id(option)->name : "");
    return safety ? CURLE_OK : CURLE_UNKNOWN_OPTION;
  });
  const Lines texts = log.texts();
  Lines result;
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::string text = names[i].empty() ? texts.at(i) : names[i];
    const std::string start = "Error issuing curl_easy_setopt(handle, ";
    if (text.starts_with(start) && text.ends_with("): 48")) {
      text = text.substr(start.size(), text.size() - start.size() - 5);
    }
    result.push_back(text + values[i]);
  }
  return result;
}

const Lines& defaults() {
  static const Lines lines = {
      std::string("CURLOPT_URL, ctx->url.c_str() = ") + kUrl,
      "CURLOPT_TIMEOUT, ctx->timeout = 90",
      "CURLOPT_CONNECTTIMEOUT, ctx->connectTimeout = 15",
      "CURLOPT_TRANSFERTEXT, 0 = 0",
      "CURLOPT_HEADER, 0 = 0",
      "CURLOPT_FOLLOWLOCATION, ctx->followRedirects ? 1 : 0 = 1",
      "CURLOPT_MAXREDIRS, 8 = 8",
      "CURLOPT_NOSIGNAL, 1 = 1",
      R"(CURLOPT_USERAGENT, formatPrintf("ZarnMediaServer/%s", kVersion).c_str() = ZarnMediaServer/)" +
          std::string(kVersion),
      R"(CURLOPT_ACCEPT_ENCODING, "gzip" = gzip)",
      "CURLOPT_CAINFO, ctx->cacert.empty() ? GetCertificateFile().c_str() : ctx->cacert.c_str() = /ca.pem",
      "CURLOPT_WRITEDATA, ctx.get() = ctx",
      "CURLOPT_WRITEFUNCTION, simple_write_callback = simple",
      "CURLOPT_RESOLVE, ctx->slistResolve = data",
      "CURLOPT_WRITEHEADER, ctx.get() = ctx",
      "CURLOPT_HEADERFUNCTION, HeaderReceived = header",
      "CURLOPT_ERRORBUFFER, ctx->error = ",
      "CURLOPT_SSL_CTX_FUNCTION, SSLCTXCallback = tls",
      "PROTOCOLS_STR = http,https",
      "REDIR_PROTOCOLS_STR = https",
      "SSLVERSION = 6",
      "CAPATH = null",
  };
  return lines;
}

/// What differs from a default GET: "- line", or "option before it > line".
Lines differences(const Lines& lines) {
  const auto name = [](const std::string& line) { return line.substr(0, line.find_first_of(", ")); };
  const auto in = [](const Lines& all, const std::string& line) {
    return std::find(all.begin(), all.end(), line) != all.end();
  };
  Lines result;
  for (const auto& line : defaults()) {
    if (!in(lines, line)) result.push_back("- " + name(line));
  }
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (!in(defaults(), lines[i])) result.push_back(name(lines.at(i - 1)) + " > " + lines[i]);
  }
  return result;
}

TEST(HttpOptions, ADefaultGet) {
  EXPECT_THAT(optionsOf({}), ElementsAreArray(defaults()));
  const Lines own = optionsOf([](HttpContext& ctx) { ctx.cacert.clear(); });
  EXPECT_TRUE(own.at(10).ends_with(" = " + FileUtils::certificateFile())) << own[10];
  const Lines plain = optionsOf([](HttpContext& ctx) { ctx.url = "http://127.0.0.1/"; });
  EXPECT_THAT(plain, Contains("REDIR_PROTOCOLS_STR = http,https"));
}

TEST(HttpOptions, SettingsChangeTheirOptions) {
  const struct {
    const char* verb;
    Configure configure;
    Lines expected;
  } cases[] = {
      {"GET",
       [](HttpContext& ctx) { ctx.lowSpeedTimeout = true, ctx.timeout = 7; },
       {"- CURLOPT_TIMEOUT", "CURLOPT_URL > CURLOPT_LOW_SPEED_LIMIT, 1 = 1",
        "CURLOPT_LOW_SPEED_LIMIT > CURLOPT_LOW_SPEED_TIME, ctx->timeout = 7"}},
      {"GET",
       [](HttpContext& ctx) { ctx.http10 = true, ctx.range = "1-2", ctx.followRedirects = false; },
       {"- CURLOPT_FOLLOWLOCATION",
        "CURLOPT_HEADER > CURLOPT_FOLLOWLOCATION, ctx->followRedirects ? 1 : 0 = 0",
        "CURLOPT_USERAGENT > CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_0 = 1",
        "CURLOPT_ACCEPT_ENCODING > CURLOPT_RANGE, ctx->range.c_str() = 1-2"}},
      {"GET",
       [](HttpContext& ctx) { ctx.verifyPeer = false, ctx.resolveDirectHost = false; },
       {"- CURLOPT_CAINFO", "- CURLOPT_RESOLVE", "- CAPATH",
        "CURLOPT_ERRORBUFFER > CURLOPT_SSL_VERIFYPEER, false = 0",
        "CURLOPT_SSL_VERIFYPEER > CURLOPT_SSL_VERIFYHOST, 0 = 0"}},
      {"GET",
       [](HttpContext& ctx) {
         ctx.maxDownloadSize = 5, ctx.username = "u", ctx.headers = {{"A", "b"}};
       },
       {"CURLOPT_WRITEFUNCTION > CURLOPT_USERNAME, ctx->username.c_str() = u",
        "CURLOPT_USERNAME > CURLOPT_PASSWORD, ctx->password.c_str() = ",
        "CURLOPT_PASSWORD > CURLOPT_HTTPHEADER, ctx->slistHeaders = data",
        "CURLOPT_ERRORBUFFER > CURLOPT_MAXFILESIZE_LARGE, ctx->maxDownloadSize = 5",
        "CAPATH > WRITEDATA = ctx", "WRITEDATA > WRITEFUNCTION = bounded"}},
      {"GET",
       [](HttpContext& ctx) {
         ctx.writeCallback = customCallback, ctx.userData = &ctx.body;
         ctx.progressHandler = [](auto...) { return true; };
       },
       {"- CURLOPT_WRITEDATA", "- CURLOPT_WRITEFUNCTION",
        "CURLOPT_CAINFO > CURLOPT_WRITEDATA, ctx->userData = data",
        "CURLOPT_WRITEDATA > CURLOPT_WRITEFUNCTION, ctx->writeCallback = custom",
        "CURLOPT_HEADERFUNCTION > CURLOPT_NOPROGRESS, 0 = 0",
        "CURLOPT_NOPROGRESS > CURLOPT_PROGRESSFUNCTION, ProgressCallback = progress",
        "CURLOPT_PROGRESSFUNCTION > CURLOPT_PROGRESSDATA, ctx.get() = ctx"}},
      {"POST",
       [](HttpContext& ctx) { ctx.postData = "body"; },
       {"CURLOPT_WRITEFUNCTION > CURLOPT_POST, 1 = 1",
        "CURLOPT_POST > CURLOPT_POSTFIELDS, ctx->postData.c_str() = body"}},
      {"POST",
       [](HttpContext& ctx) { ctx.readCallback = customCallback, ctx.uploadSize = 5'000'000'000; },
       {"CURLOPT_WRITEFUNCTION > CURLOPT_READDATA, ctx->readUserData = null",
        "CURLOPT_READDATA > CURLOPT_READFUNCTION, ctx->readCallback = custom",
        "CURLOPT_READFUNCTION > CURLOPT_INFILESIZE_LARGE, ctx->uploadSize = 5000000000",
        "CURLOPT_INFILESIZE_LARGE > CURLOPT_POST, 1 = 1",
        "CURLOPT_POST > CURLOPT_POSTFIELDSIZE_LARGE, ctx->uploadSize = 5000000000"}},
      {"POST",
       [](HttpContext& ctx) { ctx.uploadFile = stdin, ctx.uploadSize = 3; },
       {"CURLOPT_WRITEFUNCTION > CURLOPT_READDATA, ctx->uploadFile = file",
        "CURLOPT_READDATA > CURLOPT_INFILESIZE_LARGE, ctx->uploadSize = 3",
        "CURLOPT_INFILESIZE_LARGE > CURLOPT_POST, 1 = 1",
        "CURLOPT_POST > CURLOPT_POSTFIELDSIZE_LARGE, ctx->uploadSize = 3"}},
      {"PUT",
       {},
       {"CURLOPT_CAINFO > CURLOPT_CUSTOMREQUEST, ctx->verb.c_str() = PUT",
        "CURLOPT_WRITEFUNCTION > CURLOPT_INFILE, NULL = null", "CURLOPT_INFILE > CURLOPT_INFILESIZE, 0 = 0",
        "CURLOPT_INFILESIZE > CURLOPT_UPLOAD, true = 1"}},
      {"PUT",
       [](HttpContext& ctx) {
         ctx.formParts = {{"n", FormPart::Kind::Stream, "", ""}};
         ctx.readCallback = customCallback, ctx.readUserData = &ctx;
       },
       {"CURLOPT_CAINFO > CURLOPT_CUSTOMREQUEST, ctx->verb.c_str() = PUT",
        "CURLOPT_WRITEFUNCTION > CURLOPT_READFUNCTION, ctx->readCallback = custom",
        "CURLOPT_READFUNCTION > CURLOPT_HTTPPOST, first = data"}},
      {"HEAD",
       {},
       {"CURLOPT_CAINFO > CURLOPT_CUSTOMREQUEST, ctx->verb.c_str() = HEAD",
        "CURLOPT_WRITEFUNCTION > CURLOPT_NOBODY, 1 = 1"}},
      {"get", {}, {"CURLOPT_CAINFO > CURLOPT_CUSTOMREQUEST, ctx->verb.c_str() = get"}},
  };
  for (const auto& [verb, configure, expected] : cases) {
    const Lines actual = differences(optionsOf(configure, verb));
    EXPECT_THAT(actual, ElementsAreArray(expected)) << verb;
  }
}

TEST(HttpOptions, ADownloadGoesOnWhereItsFileEnds) {
  const testing::TempDirectory dir;
  for (const std::size_t size : {0U, 1000U}) {
    testing::writeFile(dir / "file", std::string(size, 'x'));
    const auto file = FileUtils::safeOpen(dir / "file", "r+b", false);
    const Lines actual = differences(optionsOf([&](HttpContext& ctx) { ctx.downloadFile = file.get(); }));
    Lines expected = {"- CURLOPT_WRITEDATA", "- CURLOPT_WRITEFUNCTION",
                      "CURLOPT_CAINFO > CURLOPT_WRITEDATA, ctx->downloadFile = file"};
    if (size != 0) expected.push_back("CURLOPT_WRITEDATA > CURLOPT_RESUME_FROM_LARGE, size = 1000");
    EXPECT_THAT(actual, ElementsAreArray(expected));
  }
}

TEST(HttpOptions, ARequestThatCannotBeMadeSafeIsNotSent) {
  const RecordingLog log;
  for (const CURLoption unsafe :
       {CURLOPT_PROTOCOLS_STR, CURLOPT_REDIR_PROTOCOLS_STR, CURLOPT_SSLVERSION, CURLOPT_CAPATH}) {
    const auto refuse = [&](CURL* handle, CURLoption option, const OptionValue& value) {
      return option == unsafe ? CURLE_NOT_BUILT_IN : setEasyOption(handle, option, value);
    };
    EXPECT_THROW(prepareHandle(HttpContext::create(kUrl, "GET"), refuse), CURLException);
  }
  EXPECT_EQ(log.texts().size(), 4U);
  EXPECT_TRUE(
      log.contains("Error issuing curl_easy_setopt(handle, CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2): 4"));
}

TEST(HttpOptions, NumbersTooLargeForAnOptionAreRefused) {
  const EasyHandle handle(curl_easy_init());
  EXPECT_EQ(setEasyOption(handle.get(), CURLOPT_INFILESIZE_LARGE, std::int64_t{1} << 40), CURLE_OK);
  EXPECT_NE(setEasyOption(handle.get(), CURLOPT_TIMEOUT, std::int64_t{0xffffffff}), CURLE_OK);
}

TEST(HttpOptions, DirectHosts) {
  const struct {
    const char* url;
    const char* entry;
  } cases[] = {
      {"https://10-0-0-5.abc.zarn.direct:8443/p?q#f", "10-0-0-5.abc.zarn.direct:8443:10.0.0.5"},
      {"https://user:pw@10-0-0-5.zarn.direct:08443", "10-0-0-5.zarn.direct:8443:10.0.0.5"},
      {"https://2001-db8-0-0-0-0-0-1.a.zarn.direct:1/",
       "2001-db8-0-0-0-0-0-1.a.zarn.direct:1:2001:db8:0:0:0:0:0:1"},
      {"https://10-0-0-5.abc.zarn.direct/p", ""},
      {"https://10-0-5.abc.zarn.direct:8443/p", ""},
      {"https://a.10-0-0-5.zarn.direct:8443/", ""},
      {"https://10-0-0-5.abc.ZARN.direct:8443/", ""},
      {"https://10-0-0-5zarn.direct:8443/", ""},
      {"https://10-0-0-5.abc.zarn.direct.example:8443/", ""},
      {"https://evil.example:8443/10-0-0-5.zarn.direct:1", ""},
      {"https://10-0-0-5.abc.zarn.direct:99999/", ""},
      {"no URL", ""},
  };
  for (const auto& [url, entry] : cases) EXPECT_EQ(directResolveEntry(url).value_or(""), entry) << url;
}

TEST(HttpCallbacks, HeaderLines) {
  const RecordingLog log;
  const auto ctx = HttpContext::create(kUrl, "GET");
  for (std::string line : {"HTTP/1.1 200 OK\r\n", "Name:   value \r\n", "Tabs:\t a:b\t\r\n\n", "Bare:\r\n",
                           "Open: x", "Inner: a\r b\r\n", "\r\n"}) {
    EXPECT_EQ(HeaderReceived(line.data(), 1, line.size(), ctx.get()), line.size());
  }
  EXPECT_THAT(ctx->responseHeaders,
              ElementsAre(Pair("Bare", ""), Pair("Inner", "a\r b"), Pair("Name", "value"), Pair("Open", "x"),
                          Pair("Tabs", "a:b")));
  char byte[] = "x";
  EXPECT_EQ(HeaderReceived(byte, 1, 1, nullptr), 0U);
  EXPECT_EQ(HeaderReceived(byte, std::numeric_limits<std::size_t>::max(), 2, ctx.get()), 0U);
  EXPECT_THAT(
      log.texts(),
      ElementsAre("HttpClient: Exception thrown in HeaderReceived: Missing userdata",
                  "HttpClient: Exception thrown in HeaderReceived: Overflow multiplying buffer size"));
}

TEST(HttpCallbacks, HeadersAreBounded) {
  const RecordingLog log;
  for (const std::size_t length : {std::size_t{10}, std::size_t{9000}}) {
    const auto ctx = HttpContext::create(kUrl, "GET");
    std::string line = "A: " + std::string(length, 'b');
    std::size_t taken = 0;
    while (taken < 10'000 && HeaderReceived(line.data(), 1, line.size(), ctx.get()) != 0) ++taken;
    EXPECT_EQ(taken, length == 10 ? kMaxHeaderLines : kMaxHeaderBytes / line.size());
  }
  EXPECT_EQ(log.count("HttpClient: Exception thrown in HeaderReceived: Too many response headers"), 2);
}

TEST(HttpCallbacks, BodySinks) {
  const RecordingLog log;
  const auto ctx = HttpContext::create(kUrl, "GET");
  char data[] = "abcd";
  EXPECT_EQ(simple_write_callback(data, 2, 2, ctx.get()), 4U);
  EXPECT_EQ(simple_write_callback(data, 0, 2, ctx.get()), 0U);
  EXPECT_EQ(simple_write_callback(data, 2, 0, ctx.get()), 0U);
  EXPECT_EQ(simple_write_callback(data, 2, 2, nullptr), 0U);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(simple_write_callback(data, std::numeric_limits<std::size_t>::max(), 2, ctx.get()), 0U);
  EXPECT_EQ(log.lines().at(0).level, LogLevel::Error);
  EXPECT_EQ(ctx->body, "abcd");

  ctx->maxDownloadSize = 6;
  EXPECT_EQ(boundedWriteCallback(data, 1, 4, ctx.get()), 4U);
  EXPECT_EQ(boundedWriteCallback(data, 1, 3, ctx.get()), 0U);
  EXPECT_TRUE(ctx->oversize);
  EXPECT_EQ(boundedWriteCallback(data, 1, 2, ctx.get()), 2U);
  EXPECT_EQ(ctx->body, "abcdabcdab");
}

TEST(HttpCallbacks, Progress) {
  const RecordingLog log;
  const auto ctx = HttpContext::create(kUrl, "GET");
  ctx->progressHandler = [](auto a, auto b, auto c, auto d) {
    if (a == 0) throw std::runtime_error("broken");
    return a == 10 && b == 5 && c == 3 && d == 1;
  };
  EXPECT_EQ(ProgressCallback(ctx.get(), 10.0, 5.9, 3.0, 1.0), 0);
  EXPECT_EQ(ProgressCallback(ctx.get(), 11.0, 5.0, 3.0, 1.0), 1);
  EXPECT_EQ(ProgressCallback(ctx.get(), 0, 0, 0, 0), 1);
  EXPECT_THROW(ProgressCallback(nullptr, 0, 0, 0, 0), std::invalid_argument);
}

TEST(HttpCompletion, FailuresOfReadsAreLogged) {
  const RecordingLog log;
  completeTransfer(HttpContext::create("https://host/", "GET"), CURLE_OK);
  const std::string start = "Error issuing curl_easy_getinfo(handle, CURLINFO_";
  EXPECT_THAT(
      log.texts(),
      ElementsAre(start + "RESPONSE_CODE, &ctx->httpCode): 43", start + "HTTP_VERSION, &httpVersion): 43",
                  start + "NUM_CONNECTS, &connects): 43", start + "TOTAL_TIME, &time): 43",
                  "HTTP/? (0.0s) 0 response from GET https://host/ (reused)"));
}

}  // namespace
}  // namespace zarn
