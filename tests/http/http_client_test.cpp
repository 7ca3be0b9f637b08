#include "http/http_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "prefs/preferences.h"
#include "support/environment.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "support/test_servers.h"

namespace zarn::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Context = std::shared_ptr<HttpContext>;
using Response = std::shared_ptr<HttpClient::Response>;

class HttpClientTest : public ::testing::Test {
 protected:
  /// What libcurl finds when it starts: two files that session keys could go to.
  static void SetUpTestSuite() {
    setEnvironment("SSLKEYLOGFILE", keys() / "from-environment");
    setEnvironment("NO_PROXY", "*");
    Preferences::useTestStore(true);
    Preferences::instance().set(preference::kTlsKeyLogPath, keys() / "from-preference");
  }
  static const TempDirectory& keys() {
    static const TempDirectory directory;
    return directory;
  }
  ~HttpClientTest() override {
    for (const auto& [level, text] : log_.lines()) EXPECT_NE(level, LogLevel::Error) << text;
  }

  Context get(const std::string& scenario, std::string_view path = TestServers::kProfilePath,
              const char* verb = "GET") {
    const auto ctx = HttpContext::create(servers_.url(scenario, path), verb);
    ctx->cacert = servers_.file("ca");
    ctx->timeout = 20;
    ctx->maxDownloadSize = 1 << 20;
    return ctx;
  }
  Response submit(const Context& ctx) { return HttpClient::submit(ctx, runner_); }
  Context perform(const Context& ctx) { return submit(ctx)->wait(); }

  const TestServers& servers_ = TestServers::instance();
  RecordingLog log_;
  HttpClientRunner runner_;
};

TEST_F(HttpClientTest, EveryEndOfATransferHasItsStatusAndLines) {
  const std::string jumbo =
      " (52, Server returned nothing (no headers, no data)). Network appears to be configured for jumbo "
      "frames.";
  const std::string oversize = "HTTP simulating 400 after max file size exceeded";
  const auto atOnce = [](HttpContext& ctx) { ctx.timeout = 1; };
  const struct {
    const char* scenario;
    std::string path;
    CURLcode result;
    int httpCode;
    std::string
        line;  // its beginning, after that of a failed request when it begins with " ("; none when empty
    std::function<void(HttpContext&)> configure = [](HttpContext&) {};
  } cases[] = {
      {"good", TestServers::kProfilePath, CURLE_OK, 200, "HTTP/1.1 ("},
      {"plain_http", "/", CURLE_OK, 200, "HTTP/1.1 ("},
      {"plain_http", "/?lyrics.zarn.example", CURLE_OK, 200, ""},
      {"version_1_0", "/", CURLE_OK, 200, "HTTP/1.0 ("},
      {"gzip", "/", CURLE_OK, 200, "HTTP/1.1 ("},
      {"status500", "/", CURLE_OK, 500, "HTTP/1.1 ("},
      {"redirects", "/8", CURLE_OK, 200, "HTTP/1.1 ("},
      {"redirects", "/9", CURLE_TOO_MANY_REDIRECTS, 302, " (47, "},
      {"redirect_http", "/", CURLE_UNSUPPORTED_PROTOCOL, 302, " (1, "},
      {"reset", "/", CURLE_RECV_ERROR, 200, " ("},
      {"empty_reply", "/", CURLE_GOT_NOTHING, 0, jumbo},
      {"other_ca", "/", CURLE_PEER_FAILED_VERIFICATION, 0, " (60, "},
      {"other_ca", "/", CURLE_OK, 200, "HTTP/1.1 (", [](HttpContext& ctx) { ctx.verifyPeer = false; }},
      {"wrong_host", "/", CURLE_PEER_FAILED_VERIFICATION, 0, " (60, "},
      {"endless_headers", "/", CURLE_WRITE_ERROR, 103, " (23, "},
      {"endless", "/", CURLE_FILESIZE_EXCEEDED, 400, oversize},
      {"endless", "/?geocoder.example", CURLE_FILESIZE_EXCEEDED, 400, ""},
      {"gzip_bomb", "/", CURLE_FILESIZE_EXCEEDED, 400, oversize},
      {"announced", "/", CURLE_FILESIZE_EXCEEDED, 400, oversize},
      {"silent", "/", CURLE_OPERATION_TIMEDOUT, 408, "HTTP simulating 408 after curl timeout", atOnce},
      {"silent", "/", CURLE_OPERATION_TIMEDOUT, 408, "HTTP simulating 408 after curl timeout",
       [](HttpContext& ctx) { ctx.timeout = 1, ctx.lowSpeedTimeout = true; }},
      {"slow", "/?ms=1500&metrics.zarn.example", CURLE_OPERATION_TIMEDOUT, 408, "", atOnce},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.scenario + expected.path);
    log_.clear();
    const auto ctx = get(expected.scenario, expected.path);
    expected.configure(*ctx);
    ASSERT_EQ(perform(ctx), ctx);
    // Wine reports a reset as an early end.
    const CURLcode early = expected.result == CURLE_RECV_ERROR ? CURLE_PARTIAL_FILE : expected.result;
    EXPECT_THAT(ctx->result, ::testing::AnyOf(expected.result, early)) << ctx->error;
    EXPECT_EQ(ctx->httpCode, expected.httpCode);
    EXPECT_LE(ctx->body.size(), 1U << 20);
    EXPECT_FALSE(ctx->handle || ctx->slistResolve || ctx->promise);
    EXPECT_EQ(ctx->responseHeaders.count("Content-Encoding"), 0U);  // the body has been decoded
    const auto lines = log_.lines();
    ASSERT_EQ(lines.empty(), expected.line.empty());
    if (lines.empty()) continue;
    const bool failed = expected.line.starts_with(' ');
    EXPECT_EQ(lines.front(), (LoggedLine{LogLevel::Debug, "HTTP requesting GET " + ctx->url}));
    EXPECT_THAT(lines.back().text,
                StartsWith((failed ? "HTTP error requesting GET " + ctx->url : "") + expected.line));
    EXPECT_EQ(lines.back().level, failed || expected.line == oversize ? LogLevel::Warn : LogLevel::Debug);
    // Only the server that never stops sending headers is worth an error in between.
    EXPECT_EQ(lines.size(), expected.httpCode == 103 ? 3U : 2U);
  }
}

TEST_F(HttpClientTest, PerformsManyRequestsAtOnce) {
  std::vector<std::thread> requesters;
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 64; ++i)
    requesters.emplace_back([&] { EXPECT_EQ(perform(get("slow", "/?ms=400"))->httpCode, 200); });
  for (auto& requester : requesters) requester.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 64 * 400ms / 2);
}

TEST_F(HttpClientTest, SendsWhatItIsGiven) {
  const TempDirectory dir;
  writeFile(dir / "upload", "from a file");
  const auto upload = FileUtils::safeOpen(dir / "upload", "rb", false);
  const auto nothing = [](HttpContext&) {};
  const struct {
    const char* verb;
    std::function<void(HttpContext&)> configure;
    std::vector<const char*> received;
  } cases[] = {
      {"GET",
       [](HttpContext& ctx) {
         ctx.headers = {{"X-One", "1"}, {"X-Two", "2"}};
         ctx.username = "user", ctx.password = "secret", ctx.range = "5-6";
       },
       {R"("X-One": "1", "X-Two": "2")", R"("Accept-Encoding": "gzip")", R"("Range": "bytes=5-6")",
        R"("Authorization": "Basic dXNlcjpzZWNyZXQ=")"}},
      {"POST", [](HttpContext& ctx) { ctx.postData = "posted"; }, {R"("body": "posted")"}},
      {"PUT",
       [&](HttpContext& ctx) { ctx.uploadFile = upload.get(), ctx.uploadSize = 11; },
       {R"("Content-Length": "11")", R"("body": "from a file")"}},
      {"PUT", nothing, {R"("Content-Length": "0")", R"("body": "")"}},
      {"HEAD", nothing, {}},
      {"POST",
       [&](HttpContext& ctx) {
         ctx.formParts = {{"a", FormPart::Kind::Contents, "contents", ""},
                          {"b", FormPart::Kind::File, dir / "upload", ""},
                          {"c", FormPart::Kind::Buffer, "buffered", "buffer.txt"}};
       },
       {R"(name=\"a\"\r\n\r\ncontents)", "from a file", R"(filename=\"buffer.txt\")", "buffered"}},
  };
  for (const auto& [verb, configure, received] : cases) {
    const auto ctx = get("echo", "/echo", verb);
    configure(*ctx);
    EXPECT_EQ(perform(ctx)->httpCode, 200) << verb << ctx->error;
    EXPECT_EQ(ctx->body.find("{\"method\": \"" + std::string(verb)),
              received.empty() ? std::string::npos : 0U);
    for (const char* text : received) EXPECT_THAT(ctx->body, HasSubstr(text));
  }
}

TEST_F(HttpClientTest, DownloadsIntoFiles) {
  const TempDirectory dir;
  std::string whole;
  for (int i = 0; i < 5000; ++i) whole += static_cast<char>('a' + i % 26);
  writeFile(dir / "resume", whole.substr(0, 1000));
  for (const auto& [scenario, httpCode] : {std::pair{"resume", 206}, {"endless", 400}}) {
    const auto ctx = get(scenario);
    const auto file = FileUtils::safeOpen(dir / scenario, "ab", false);
    ctx->downloadFile = file.get();
    EXPECT_EQ(perform(ctx)->httpCode, httpCode);
  }
  EXPECT_EQ(readFile(dir / "resume"), whole);
  EXPECT_LE(FileUtils::fileSize(dir / "endless"), 1U << 20);
}

TEST_F(HttpClientTest, WhatCannotBeStartedIsRejected) {
  HttpClientRunner full(0);
  EXPECT_THROW(static_cast<void>(HttpClient::submit(get("good"), full)->wait()), std::length_error);
  const auto underWay = get("silent");
  submit(underWay);
  const auto ended = perform(get("good"));
  for (const auto& again : {underWay, ended}) EXPECT_THROW(submit(again), std::logic_error);
}

TEST_F(HttpClientTest, WhatIsUnderWayCanBeEnded) {
  for (const bool throws : {false, true}) {
    const auto ctx = get("silent");
    ctx->progressHandler = [throws](auto...) {
      return throws ? throw std::runtime_error("no\nmore") : false;
    };
    EXPECT_EQ(perform(ctx)->result, CURLE_ABORTED_BY_CALLBACK);
    EXPECT_EQ(log_.contains("HttpClient: Exception thrown in ProgressCallback: no\\x0amore"), throws);
  }
  log_.clear();
  Response underWay;
  {
    HttpClientRunner runner;
    underWay = HttpClient::submit(get("silent"), runner);
    EXPECT_EQ(HttpClient::submit(get("good"), runner)->wait()->httpCode, 200);
  }
  EXPECT_EQ(underWay->wait()->result, CURLE_ABORTED_BY_CALLBACK);
}

TEST_F(HttpClientTest, SessionKeysGoToThePreferredFileOnly) {
  EXPECT_EQ(HttpClient::submit(get("good"))->wait()->httpCode, 200);  // on the runner of the process
  EXPECT_THAT(readFile(keys() / "from-preference"), HasSubstr("_TRAFFIC_SECRET_0 "));
  EXPECT_FALSE(FileUtils::exists(keys() / "from-environment"));
}

}  // namespace
}  // namespace zarn::testing
