#include "http/http_client.h"

#include <boost/algorithm/string/replace.hpp>

#include "prefs/preferences.h"
#include "support/test.h"
#include "support/test_servers.h"

namespace zarn::testing {
namespace {

using Context = std::shared_ptr<HttpContext>;
using Response = std::shared_ptr<HttpClient::Response>;

struct HttpClientTest : ::testing::Test {
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

  Context get(const std::string& scenario, std::string_view path = {}, const char* verb = "GET") {
    if (path.empty()) path = TestServers::kProfilePath;
    const auto ctx = HttpContext::create(servers_.url(scenario, path), verb);
    ctx->cacert = servers_.file("ca");
    ctx->timeout = 20;
    ctx->maxDownloadSize = 1 << 20;
    return ctx;
  }
  Response submit(const Context& ctx) { return HttpClient::submit(ctx, runner_); }
  Context perform(const Context& ctx) { return submit(ctx)->wait(); }

  const TestServers servers_;
  RecordingLog log_;
  HttpClientRunner runner_;
};

TEST_F(HttpClientTest, EveryEndOfATransferHasItsStatusAndLines) {
  for (const Lines& row : tableIn("http/ends.txt")) {
    const std::string& request = row[0];
    SCOPED_TRACE(request);
    log_.clear();
    const auto path = std::min(request.find('/'), request.size());
    const auto ctx = get(request.substr(0, path), request.substr(path));
    if (row[2] == "408") ctx->timeout = 1;
    ctx->verifyPeer = !request.ends_with("unverified");
    ctx->lowSpeedTimeout = request.ends_with("stalled");
    ASSERT_EQ(perform(ctx), ctx);
    // Wine reports a reset as an early end.
    const bool isEarly = request == "reset/" && ctx->result == CURLE_PARTIAL_FILE;
    EXPECT_EQ(std::to_string(isEarly ? CURLE_RECV_ERROR : ctx->result), row[1]) << ctx->error;
    EXPECT_EQ(std::to_string(ctx->httpCode), row[2]);
    EXPECT_LE(ctx->body.size(), 1U << 20);
    EXPECT_FALSE(ctx->handle || ctx->slistResolve || ctx->promise);
    EXPECT_EQ(ctx->responseHeaders.count("Content-Encoding"), 0U);  // the body has been decoded
    const auto lines = log_.lines();
    ASSERT_EQ(std::to_string(lines.size()), row[3]);
    if (row.size() == 4) continue;
    EXPECT_EQ(lines.front(), (LoggedLine{LogLevel::Debug, "HTTP requesting GET " + ctx->url}));
    EXPECT_EQ(std::to_string(static_cast<int>(lines.back().level)), row[4]);
    EXPECT_THAT(boost::replace_first_copy(lines.back().text, ctx->url, "URL"), StartsWith(row[5]));
  }
}

TEST_F(HttpClientTest, PerformsManyRequestsAtOnce) {
  std::vector<std::future<void>> requesters;
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 64; ++i)
    requesters.push_back(std::async([&] { EXPECT_EQ(perform(get("slow", "/?ms=400"))->httpCode, 200); }));
  requesters.clear();  // waits for all
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 64 * 400ms / 2);
}

TEST_F(HttpClientTest, SendsWhatItIsGiven) {
  const TempDirectory dir;
  writeFile(dir / "upload", "from a file");
  const auto upload = FileUtils::safeOpen(dir / "upload", "rb", false);
  const std::tuple<const char*, std::function<void(HttpContext&)>, std::vector<const char*>> cases[] = {
      {"GET",
       [](auto& ctx) {
         ctx.headers = {{"X-One", "1"}, {"X-Two", "2"}}, ctx.username = "user";
       },
       {R"("method": "GET")", R"("X-One": "1", "X-Two": "2")", R"("Authorization": "Basic dXNlcjo=")"}},
      {"PUT",
       [&](auto& ctx) { ctx.uploadFile = upload.get(), ctx.uploadSize = 11; },
       {R"("method": "PUT")", R"("Content-Length": "11")", R"("body": "from a file")"}},
      {"POST",
       [&](HttpContext& ctx) {
         ctx.formParts = {{"a", FormPart::Kind::Contents, "contents", ""},
                          {"b", FormPart::Kind::File, dir / "upload", ""},
                          {"c", FormPart::Kind::Buffer, "buffered", "buffer.txt"}};
       },
       {R"(name=\"a\"\r\n\r\ncontents)", "from a file", R"(filename=\"buffer.txt\")", "buffered"}}};
  for (const auto& [verb, configure, parts] : cases) {
    const auto ctx = get("echo", "/echo", verb);
    configure(*ctx);
    EXPECT_EQ(perform(ctx)->httpCode, 200) << verb << ctx->error;
    for (const char* part : parts) EXPECT_THAT(ctx->body, HasSubstr(part));
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
    ctx->progressHandler = [=](auto...) { return throws ? throw std::runtime_error("no\nmore") : false; };
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
