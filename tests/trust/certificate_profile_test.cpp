#include "trust/certificate_profile.h"

#include <fmt/ranges.h>

#include "http/http_context.h"
#include "support/recording_events.h"
#include "support/test.h"
#include "support/test_servers.h"

namespace zarn::testing {
namespace {

constexpr char kOne[] = R"({"certs":["a"]})";
const std::string kNotReceived = "Error: Could not receive json data, ";
const std::string kCode = kNotReceived + "http code:  ";
const std::string kNotRead = "Error: Could not read json data, exception: ";
const std::string kTooDeep = kNotRead + "nested too deeply, type: zarn::ProfileNestingError";

/// The error that is logged, or the profile in brackets: never both.
std::string outcomeOf(const std::function<std::optional<ApprovedDigests>()>& fetch) {
  const RecordingLog log(LogLevel::Error);
  const auto profile = fetch();
  EXPECT_EQ(log.lines().size(), profile ? 0U : 1U);
  return profile ? fmt::format("[{}]", fmt::join(*profile, "|")) : log.texts().at(0);
}

TEST(CertificateProfile, TakesTheValuesUnderCertsAsTheyStand) {
  /// The profile's brace and arrays in it, `depth` in all.
  const auto nested = [](std::size_t depth) {
    return R"({"certs":["a"],"x":)" + std::string(depth - 1, '[') + std::string(depth - 1, ']') + "}";
  };
  const std::pair<std::string, std::string> table[] = {
      {"", kNotRead},
      {R"({"certs":[]})", "[]"},
      {R"({"certs":["b","a","b"],"other":{"certs":["c"]}})", "[a|b]"},
      {R"({"certs":{"first":"a","second":"b"}})", "[a|b]"},
      {R"({"certs":["ABCDEF"," a ",17]})", "[ a |17|ABCDEF]"},
      {R"({"certs":["\"{[","\\"],"x":")" + std::string(1000, '{') + R"("})", R"(["{[|\])"},
      {nested(32), "[a]"},
      {nested(33), kTooDeep},
      {"\"\\\\\"" + std::string(33, '['), kTooDeep},  // the string ends after its backslash
      {std::string(kOne) + "x", kNotRead},
      {R"({"CERTS":["a"]})", kNotRead + "No such node (certs), type: "}};
  for (const auto& [body, outcome] : table)
    EXPECT_THAT(outcomeOf([&text = body] { return parseCertificateProfile(text); }), StartsWith(outcome));
}

TEST(CertificateProfile, BadServersAreAnsweredInTimeAndTheNextGoodOneServes) {
  // Other ends of a transfer are shown by the tests of the HTTP client, and what comes of their codes below.
  const TestServers servers;
  const std::string good = "[0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef]";
  const std::pair<const char*, std::string> table[] = {
      {"reset", kNotRead}, {"other_ca", kCode + "0"}, {"drip", kCode + "408"}, {"good", good}};
  for (const auto& [name, outcome] : table) {
    const CertificateProfileClient client(servers.host(name), 1, servers.file("ca"));
    EXPECT_THAT(outcomeOf([&] { return client.fetch(); }), StartsWith(outcome)) << name;
  }
}

/// The outcome of a fetch from `host` by a transfer that ends as told; puts down the request.
std::string outcomeOfTold(const std::string& host, std::int32_t httpCode = 200, CURLcode result = CURLE_OK,
                          std::shared_ptr<HttpContext>* request = nullptr) {
  const auto perform = [&](std::shared_ptr<HttpContext> context) {
    if (request != nullptr) *request = context;
    if (httpCode == 0) throw std::runtime_error("list too\nlong");
    std::tie(context->httpCode, context->result, context->body) = std::tuple(httpCode, result, kOne);
    return context;
  };
  return outcomeOf([&] { return CertificateProfileClient(host, perform).fetch(); });
}

TEST(CertificateProfile, OnlyAWholeResponseWithACodeFrom200To299Counts) {
  for (const auto& [httpCode, outcome] :
       {std::pair(199, kCode + "199"), {200, "[a]"}, {299, "[a]"}, {300, kCode + "300"}})
    EXPECT_EQ(outcomeOfTold("h", httpCode), outcome);
  EXPECT_THAT(outcomeOfTold("h", 200, CURLE_RECV_ERROR), StartsWith(kNotReceived + "transfer broke off: "));
  RecordingEvents events;
  for (const auto& [httpCode, result, reason] :
       {std::tuple(200, CURLE_OK, ""),
        {503, CURLE_OK, "HTTP status 503"},
        {0, CURLE_OK, "list too\nlong"},
        {200, CURLE_RECV_ERROR, "Failure when receiving data from the peer"}}) {
    static_cast<void>(outcomeOfTold("h", httpCode, result));
    EXPECT_THAT(fmt::format("{}", fmt::join(events.take(), "")),
                *reason == '\0' ? "" : std::string("1010|h|") + reason);
  }
  EXPECT_EQ(outcomeOfTold("h", 0), kNotReceived + "exception: list too\\x0along, type: std::runtime_error");
}

TEST(CertificateProfile, TheRequestIsBoundedAndGoesToNothingButAHost) {
  for (const std::string good :
       {"a", "127-0-0-1.x.zarn.direct:8443", "10.0.0.1:1", "[::1]", "[::ffff:10.0.0.1]:65535"}) {
    std::shared_ptr<HttpContext> request;
    EXPECT_EQ(outcomeOfTold(good, 200, CURLE_OK, &request), "[a]");
    EXPECT_EQ(request->url, "https://" + good + "/api/zmscert/profile");
    EXPECT_TRUE(request->timeout == 60 && request->maxDownloadSize == 1 << 20);
  }
  using namespace std::string_literals;
  for (const auto& bad : {""s,     "a\0b"s, ":443"s,   "a:"s,     "a:0"s,         "a:65536"s,
                          "a:+1"s, "a:1x"s, "a:1:2"s,  "user@a"s, "user:1@a"s,    "a/b"s,
                          "a?b"s,  "a#b"s,  "a\\b"s,   "a b"s,    "a%2fb"s,       "::1"s,
                          "[]"s,   "[::1"s, "[::1]x"s, "[a/b]"s,  "caf\xC3\xA9"s, std::string(254, 'a')}) {
    const std::string error = kNotReceived + "invalid account service host: " + bad.substr(0, bad.find('\0'));
    RecordingEvents events;
    EXPECT_THAT(outcomeOfTold(bad), StartsWith(error));
    EXPECT_EQ(events.take().at(0), "1010||its name is no host");
  }
}

}  // namespace
}  // namespace zarn::testing
