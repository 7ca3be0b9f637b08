#include "http/http_options.h"

#include "http/http_transfer.h"
#include "support/test.h"
#include "util/product_version.h"

namespace zarn::testing {
namespace {

constexpr char kUrl[] = "https://10-0-0-5.abc.zarn.direct:8443/p";

std::vector<std::string> callsFor(const std::string& features) {
  Lines calls;
  std::istringstream lines(readFile(ZARN_SOURCE "/tests/http/options.txt"));
  for (std::string line; std::getline(lines, line);)
    if (features.find(line[0]) != std::string::npos) calls.push_back(line.substr(2));
  return calls;
}

std::string textOf(const OptionValue& value) {
  if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
  const auto* chars = std::get_if<const char*>(&value);
  if (chars == nullptr) return "pointer";
  const std::string text = *chars == nullptr ? "null" : *chars;
  if (text == FileUtils::certificateFile()) return "own CA";
  return text == formatPrintf("ZarnMediaServer/%s", kVersion) ? "agent" : text;
}

TEST(HttpOptions, AreSetInOrderAndARefusalIsLoggedOrEndsTheRequest) {
  const TempDirectory dir;
  writeFile(dir / "file", "seven..");
  const auto file = FileUtils::safeOpen(dir / "file", "ab", false);
  const auto read = [](char*, std::size_t, std::size_t, void*) { return std::size_t{0}; };
  const std::tuple<const char*, const char*, std::function<void(HttpContext&)>> cases[] = {
      {"*vb", "GET", [](auto&) {}},
      {"*Vb", "POST",
       [](HttpContext& c) {
         c.lowSpeedTimeout = c.http10 = true, c.followRedirects = c.resolveDirectHost = c.verifyPeer = false;
         c.url = "http://a/", c.range = "1-2", c.postData = "posted", c.username = "user";
         c.password = "secret", c.headers = {{"A", "b"}}, c.maxDownloadSize = 9;
         c.progressHandler = [](auto...) { return true; };
       }},
      {"*vbEp", "PUT", [](auto&) {}},
      {"*vwfp", "PUT", [&](HttpContext& c) { c.writeCallback = read, c.uploadFile = file.get(); }},
      {"*vdfo", "POST", [&](HttpContext& c) { c.downloadFile = c.uploadFile = file.get(); }},
      {"*vbRo", "POST", [&](HttpContext& c) { c.readCallback = read, c.readUserData = &c; }},
      {"*vbF", "POST",
       [](auto& c) {
         c.formParts = {{"a", FormPart::Kind::Stream, "", ""}}, c.readUserData = &c;
       }},
      {"*vbH", "HEAD", [](auto&) {}}};
  for (const auto& [features, verb, configure] : cases) {
    const auto calls = callsFor(features);
    // From this one on, a request without the option would not be safe to send.
    const auto safety =
        std::ranges::find(calls, R"(PROTOCOLS_STR, "http,https"=>http,https)") - calls.begin();
    for (std::ptrdiff_t refused = 0; refused <= std::ssize(calls); ++refused) {
      const RecordingLog log;
      const auto ctx = HttpContext::create(kUrl, verb);
      ctx->uploadSize = 11;
      configure(*ctx);
      auto next = calls.begin();
      std::vector<std::string> lines;
      const auto set = [&](CURL*, CURLoption option, const OptionValue& value) {
        if (next == calls.end()) throw std::logic_error("one option too many");
        const std::string call = next->substr(0, next->find("=>"));
        const std::string shown = call.substr(call.find(", ") + 2);
        const std::string wanted = call == *next ? shown : next->substr(call.size() + 2);
        EXPECT_EQ(curl_easy_option_by_name(call.substr(0, call.find(',')).c_str())->id, option) << call;
        EXPECT_THAT(textOf(value), ::testing::AnyOf(wanted, call == *next ? "pointer" : wanted)) << call;
        if (next++ != calls.begin() + refused) return CURLE_OK;
        lines.push_back("Error issuing curl_easy_setopt(handle, CURLOPT_" + call + "): 27");
        return CURLE_OUT_OF_MEMORY;
      };
      if (refused < safety || refused == std::ssize(calls)) {
        EXPECT_NO_THROW(prepareHandle(ctx, set));
        EXPECT_EQ(next, calls.end());
      } else {
        EXPECT_THROW(prepareHandle(ctx, set), CURLException);
      }
      EXPECT_EQ(log.texts(), lines);
    }
  }
}

TEST(HttpOptions, DirectHosts) {
  for (const Lines& row : tableIn("http/direct_hosts.txt"))
    EXPECT_EQ(directResolveEntry(row[0]).value_or("none"), row[1]) << row[0];
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
