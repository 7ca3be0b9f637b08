#include "http/http_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "prefs/preferences.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "support/test_servers.h"

namespace zarn {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using testing::LoggedLine;
using testing::RecordingLog;
using ::testing::StartsWith;
using testing::TempDirectory;
using testing::TestServers;
using Context = std::shared_ptr<HttpContext>;

/// What the process has to know before libcurl starts.
class Surroundings : public ::testing::Environment {
 public:
  void SetUp() override {
    static std::string keyFile = "SSLKEYLOGFILE=" + (directory() / "from-environment");
    static char noProxy[] = "NO_PROXY=*";
    ::putenv(keyFile.data());
    ::putenv(noProxy);
    Preferences::useTestStore(true);
    Preferences::instance().setStringValue("TLSKeyLogPath", directory() / "from-preference");
  }
  static const TempDirectory& directory() {
    static const TempDirectory instance;
    return instance;
  }
};
[[maybe_unused]] const auto* const surroundings = ::testing::AddGlobalTestEnvironment(new Surroundings);

class HttpClientTest : public ::testing::Test {
 protected:
  Context request(const std::string& url, const char* verb = "GET") {
    const auto ctx = HttpContext::create(url, verb);
    ctx->cacert = servers_.file("ca");
    ctx->timeout = 20;
    return ctx;
  }
  Context get(const std::string& scenario, std::string_view path = TestServers::kProfilePath) {
    return request(servers_.url(scenario, path));
  }
  auto submit(const Context& ctx) { return HttpClient::submit(ctx, runner_); }
  Context perform(const Context& ctx) { return submit(ctx)->wait(); }

  /// The last line about the request's URL.
  LoggedLine lastLine(const HttpContext& ctx) const {
    LoggedLine last{LogLevel::Verbose, "nothing"};
    for (const auto& line : log_.lines()) {
      if ((line.text + " ").find(ctx.url + " ") != std::string::npos) last = line;
    }
    return last;
  }

  const TestServers& servers_ = TestServers::instance();
  RecordingLog log_;
  HttpClientRunner runner_;
};

TEST_F(HttpClientTest, EveryEndOfATransferHasItsStatusAndLine) {
  constexpr auto debug = LogLevel::Debug;
  constexpr auto warn = LogLevel::Warn;
  const struct {
    const char* scenario;
    CURLcode result;
    int httpCode;
    LogLevel level;
    const char* line;  ///< in the last line about the URL
  } cases[] = {
      {"good", CURLE_OK, 200, debug, "s) 200 response from GET "},
      {"plain_http", CURLE_OK, 200, debug, "s) 200 response from GET "},
      {"gzip", CURLE_OK, 200, debug, "s) 200 response from GET "},
      {"status500", CURLE_OK, 500, debug, "s) 500 response from GET "},
      {"redirect_http", CURLE_UNSUPPORTED_PROTOCOL, 302, warn, " (1, "},
      {"reset", CURLE_RECV_ERROR, 200, warn, " ("},
      {"empty_reply", CURLE_GOT_NOTHING, 0, warn,
       " (52, Server returned nothing (no headers, no data)). Network appears to be configured for jumbo "
       "frames."},
      {"other_ca", CURLE_PEER_FAILED_VERIFICATION, 0, warn, " (60, "},
      {"endless_headers", CURLE_WRITE_ERROR, 103, warn, " (23, "},
      {"endless", CURLE_FILESIZE_EXCEEDED, 400, debug, "HTTP requesting GET "},
      {"gzip_bomb", CURLE_FILESIZE_EXCEEDED, 400, debug, "HTTP requesting GET "},
      {"announced", CURLE_FILESIZE_EXCEEDED, 400, debug, "HTTP requesting GET "},
      {"silent", CURLE_OPERATION_TIMEDOUT, 408, debug, "HTTP requesting GET "},
  };
  std::vector<std::pair<Context, std::shared_ptr<HttpClient::Response>>> running;
  for (const auto& expected : cases) {
    const auto ctx = get(expected.scenario);
    ctx->maxDownloadSize = 1 << 20;
    if (expected.httpCode == 408) ctx->timeout = 1;
    running.emplace_back(ctx, submit(ctx));
  }
  for (std::size_t i = 0; i < running.size(); ++i) {
    const auto& expected = cases[i];
    const auto& [ctx, response] = running[i];
    ASSERT_EQ(response->wait(), ctx);
    // Wine reports a reset as an early end.
    const CURLcode early = expected.result == CURLE_RECV_ERROR ? CURLE_PARTIAL_FILE : expected.result;
    EXPECT_THAT(ctx->result, AnyOf(expected.result, early)) << expected.scenario << ": " << ctx->error;
    EXPECT_EQ(ctx->httpCode, expected.httpCode) << expected.scenario;
    EXPECT_LE(ctx->body.size(), 1U << 20) << expected.scenario;
    const LoggedLine line = lastLine(*ctx);
    EXPECT_EQ(line.level, expected.level) << line.text;
    EXPECT_THAT(line.text, HasSubstr(expected.line));
    if (expected.level == warn && expected.result != CURLE_GOT_NOTHING) {
      EXPECT_THAT(line.text, AllOf(StartsWith("HTTP error requesting GET " + ctx->url + " ("),
                                   EndsWith(std::string(") (") + ctx->error + ")")));
    }
    EXPECT_FALSE(ctx->handle || ctx->slistResolve || ctx->promise);
  }
  const auto lines = log_.lines();
  EXPECT_THAT(lines, Contains(LoggedLine{warn, "HTTP simulating 400 after max file size exceeded"}).Times(3));
  EXPECT_THAT(lines, Contains(LoggedLine{debug, "HTTP simulating 408 after curl timeout"}).Times(1));

  const Context& gzip = running[2].first;
  EXPECT_THAT(gzip->body, StartsWith("{\"certs\": "));
  EXPECT_EQ(gzip->responseHeaders.count("Content-Encoding"), 0U);
  EXPECT_EQ(gzip->responseHeaders.find("X-Kept")->second, "gzip");
}

TEST_F(HttpClientTest, ReusesConnectionsAndTakesNewRequestsAtOnce) {
  perform(get("good"));
  std::this_thread::sleep_for(200ms);  // the runner is in its minute of waiting now
  const auto begin = std::chrono::steady_clock::now();
  const auto second = perform(get("good"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
  EXPECT_THAT(lastLine(*second).text, EndsWith(" (reused)"));
}

TEST_F(HttpClientTest, PerformsManyRequestsAtOnce) {
  std::vector<std::thread> requesters;
  std::atomic<int> good{0};
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 64; ++i) {
    requesters.emplace_back([&] { good += perform(get("slow", "/?ms=400"))->httpCode == 200 ? 1 : 0; });
  }
  for (auto& requester : requesters) requester.join();
  EXPECT_EQ(good, 64);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 64 * 400ms / 2);
}

TEST_F(HttpClientTest, SendsWhatItIsGiven) {
  const TempDirectory dir;
  testing::writeFile(dir / "upload", "from a file");
  const auto upload = FileUtils::safeOpen(dir / "upload", "rb", false);
  std::string source = "from a callback";
  const curl_read_callback read = [](char* buffer, std::size_t size, std::size_t count, void* data) {
    return std::exchange(*static_cast<std::string*>(data), {}).copy(buffer, size * count);
  };
  const struct {
    const char* verb;
    std::function<void(HttpContext&)> configure;
    std::vector<std::string> expected;
  } cases[] = {
      {"GET",
       [](HttpContext& ctx) {
         ctx.headers = {{"X-One", "1"}, {"X-Two", "2"}};
         ctx.username = "user", ctx.password = "secret", ctx.range = "5-6";
       },
       {R"("method": "GET")", "\"User-Agent\": \"ZarnMediaServer/", R"("X-One": "1", "X-Two": "2")",
        R"("Accept-Encoding": "gzip")", R"("Authorization": "Basic dXNlcjpzZWNyZXQ=")",
        R"("Range": "bytes=5-6")"}},
      {"DELETE", {}, {R"("method": "DELETE")"}},
      {"POST",
       [](HttpContext& ctx) { ctx.postData = "posted"; },
       {R"("method": "POST")", R"("body": "posted")"}},
      {"PUT",
       [&](HttpContext& ctx) { ctx.uploadFile = upload.get(), ctx.uploadSize = 11; },
       {R"("method": "PUT")", R"("body": "from a file")"}},
      {"PUT", {}, {R"("method": "PUT")", R"("Content-Length": "0")", R"("body": "")"}},
      {"POST",
       [&](HttpContext& ctx) {
         source = "streamed";
         ctx.formParts = {{"a", FormPart::Kind::Contents, "contents", ""},
                          {"b", FormPart::Kind::File, dir / "upload", ""},
                          {"c", FormPart::Kind::Buffer, "buffered", "buffer.txt"},
                          {"d", FormPart::Kind::Stream, "", ""}};
         ctx.readCallback = read, ctx.readUserData = &source, ctx.uploadSize = 8;
       },
       {"multipart/form-data", R"(name=\"a\"\r\n\r\ncontents)", "from a file", R"(filename=\"buffer.txt\")",
        "buffered", R"(name=\"d\"\r\n\r\nstreamed)"}},
  };
  for (const auto& [verb, configure, expected] : cases) {
    const auto ctx = request(servers_.url("echo", "/echo"), verb);
    if (configure) configure(*ctx);
    perform(ctx);
    EXPECT_EQ(ctx->httpCode, 200) << verb << ctx->error;
    for (const auto& text : expected) EXPECT_THAT(ctx->body, HasSubstr(text));
  }
}

TEST_F(HttpClientTest, DownloadsIntoFiles) {
  const TempDirectory dir;
  std::string whole;
  for (int i = 0; i < 5000; ++i) whole += static_cast<char>('a' + i % 26);
  testing::writeFile(dir / "partial", whole.substr(0, 1000));
  auto partial = FileUtils::safeOpen(dir / "partial", "ab", false);
  auto bounded = FileUtils::safeOpen(dir / "bounded", "wb", false);
  const auto resumed = get("resume");
  resumed->downloadFile = partial.get();
  EXPECT_EQ(perform(resumed)->httpCode, 206);
  const auto endless = get("endless");
  endless->downloadFile = bounded.get();
  endless->maxDownloadSize = 100'000;
  EXPECT_EQ(perform(endless)->httpCode, 400);
  partial.reset();
  bounded.reset();
  EXPECT_EQ(testing::readFile(dir / "partial"), whole);
  EXPECT_LE(FileUtils::fileSize(dir / "bounded"), 100'000U);
}

TEST_F(HttpClientTest, QuietHostsLeaveNoLines) {
  for (const auto* scenario : {"good", "other_ca", "silent", "announced", "empty_reply"}) {
    const auto ctx = get(scenario, std::string(TestServers::kProfilePath) + "?for=metrics.zarn.example");
    ctx->timeout = 1;
    ctx->maxDownloadSize = 1 << 20;
    perform(ctx);
    EXPECT_TRUE(ctx->quiet);
  }
  EXPECT_THAT(log_.lines(), ::testing::IsEmpty());
}

TEST_F(HttpClientTest, AContinuationThatBlocksHoldsUpNoOtherTransfer) {
  std::promise<void> second;
  std::promise<bool> first;
  submit(get("slow", "/?ms=100"))->then([&](HttpClient::Response&) {
    first.set_value(second.get_future().wait_for(20s) == std::future_status::ready);
  });
  perform(get("slow", "/?ms=300"));
  second.set_value();
  EXPECT_TRUE(first.get_future().get());
}

TEST_F(HttpClientTest, WhatCannotBeStartedIsRejected) {
  const auto reason = [](HttpClient::Response& response) -> std::string {
    try {
      static_cast<void>(response.wait());
      return "resolved";
    } catch (const std::exception& error) {
      return error.what();
    }
  };
  HttpClientRunner full(0);
  EXPECT_EQ(reason(*HttpClient::submit(get("good"), full)), "list too long");

  const auto refuse = [](CURL*, CURLoption option, const OptionValue&) {
    return option == CURLOPT_REDIR_PROTOCOLS_STR ? CURLE_OUT_OF_MEMORY : CURLE_OK;
  };
  EXPECT_EQ(reason(*HttpClient::submit(get("good"), runner_, refuse)), "Out of memory");

  const auto unprepared = get("good");
  const auto response = unprepared->promise = HttpClient::Response::Create();
  runner_.submit(unprepared);
  EXPECT_EQ(reason(*response), "A libcurl function was given a bad argument");
  EXPECT_TRUE(log_.contains("Failed to add handle: A libcurl function was given a bad argument"));
  EXPECT_EQ(perform(get("good"))->httpCode, 200) << "the runner goes on";

  const auto twice = get("silent");
  submit(twice);
  EXPECT_THROW(submit(twice), std::logic_error);
}

TEST_F(HttpClientTest, AProgressHandlerCanEndATransfer) {
  const auto ctx = get("endless");
  ctx->progressHandler = [](std::int64_t, std::int64_t now, auto...) { return now < 100'000; };
  EXPECT_EQ(perform(ctx)->result, CURLE_ABORTED_BY_CALLBACK);
}

TEST_F(HttpClientTest, ARunnerThatEndsSettlesWhatIsUnderWay) {
  std::shared_ptr<HttpClient::Response> under;
  {
    HttpClientRunner runner;
    under = HttpClient::submit(get("silent"), runner);
    EXPECT_EQ(HttpClient::submit(get("good"), runner)->wait()->httpCode, 200);
  }
  EXPECT_EQ(under->wait()->result, CURLE_ABORTED_BY_CALLBACK);
}

TEST_F(HttpClientTest, SessionKeysGoToThePreferredFileOnly) {
  EXPECT_EQ(HttpClient::submit(get("good"))->wait()->httpCode, 200);  // on the runner of the process
  const auto& directory = Surroundings::directory();
  const std::string keys = testing::readFile(directory / "from-preference");
  EXPECT_THAT(keys, AllOf(HasSubstr("_TRAFFIC_SECRET_0 "), EndsWith("\n")));
  EXPECT_FALSE(FileUtils::exists(directory / "from-environment"));
}

}  // namespace
}  // namespace zarn
