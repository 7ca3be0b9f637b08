#include "trust/certificate_profile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "http/http_context.h"
#include "support/recording_log.h"
#include "support/test_servers.h"
#include "trust/account_service_host.h"

namespace zarn::testing {
namespace {

using ::testing::StartsWith;
using Profile = std::optional<ApprovedDigests>;  // nothing when it cannot be had

const ApprovedDigests kA = {"a"};
const std::string kDigest = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
const std::string kNotReceived = "Error: Could not receive json data, ";
const std::string kCode = kNotReceived + "http code:  ";
const std::string kNotRead = "Error: Could not read json data, exception: ";
const std::string kTooDeep = kNotRead + "nested too deeply, type: zarn::ProfileNestingError";

/// What `fetch` answers, which logs one error when it is nothing, and none otherwise.
template <typename Fetch>
Profile answerOf(const Fetch& fetch, const std::string& error) {
  const RecordingLog log;
  Profile profile = fetch();
  std::string errors;
  for (const auto& [level, text] : log.lines()) errors += level == LogLevel::Error ? text + "\n" : "";
  EXPECT_THAT(errors, StartsWith(error));
  EXPECT_EQ(std::ranges::count(errors, '\n'), profile ? 0 : 1);
  return profile;
}

TEST(CertificateProfile, TakesTheValuesUnderCertsAsTheyStand) {
  /// The profile's brace and arrays in it, `depth` in all.
  const auto nested = [](std::size_t depth) {
    return R"({"certs":["a"],"x":)" + std::string(depth - 1, '[') + std::string(depth - 1, ']') + "}";
  };
  const std::tuple<std::string, Profile, std::string> table[] = {
      {R"({"certs":[]})", ApprovedDigests{}, ""},
      {R"({"certs":["b","a","b"],"other":{"certs":["c"]}})", {{"a", "b"}}, ""},
      {R"({"certs":{"first":"a","second":"b"}})", {{"a", "b"}}, ""},
      {R"({"certs":["ABCDEF"," a ",17]})", {{"ABCDEF", " a ", "17"}}, ""},
      {R"({"certs":["\"{[","\\"],"x":")" + std::string(1000, '{') + R"("})", {{"\"{[", "\\"}}, ""},
      {nested(32), kA, ""},
      {nested(33), {}, kTooDeep},
      {"\"\\\\\"" + std::string(33, '['), {}, kTooDeep},  // the string ends after its backslash
      {R"({"certs":["a"]}x)", {}, kNotRead},
      {R"({"CERTS":["a"]})", {}, kNotRead + "No such node (certs), type: "}};
  for (const auto& [body, profile, error] : table)
    EXPECT_EQ(answerOf([&body = body] { return parseCertificateProfile(body); }, error), profile) << body;
}

TEST(CertificateProfile, EveryServerIsAnsweredAsItDeservesAndTheNextGoodOneServes) {
  // Other ends of a transfer are shown by the tests of the HTTP client, and what comes of their codes below.
  // What comes of a reset connection is no whole document.
  const std::pair<const char*, std::string> table[] = {
      {"status204", kNotRead},   {"redirect_loop", kCode + "302"}, {"reset", kNotRead},
      {"other_ca", kCode + "0"}, {"silent", kCode + "408"},        {"drip", kCode + "408"}};
  const auto& servers = TestServers::instance();
  const auto fetchFrom = [&](const std::string& scenario) {
    return CertificateProfileClient(servers.host(scenario), 1, servers.file("ca")).fetch();
  };
  EXPECT_EQ(fetchFrom("good"), ApprovedDigests{kDigest});
  for (const auto& [scenario, error] : table) {
    SCOPED_TRACE(scenario);
    const RecordingLog log;
    EXPECT_EQ(answerOf([&, name = scenario] { return fetchFrom(name); }, error), std::nullopt);
    EXPECT_EQ(fetchFrom("good"), ApprovedDigests{kDigest});
    const std::string reused = "200 response from GET " + servers.url("good") + " (reused)";
    EXPECT_THAT(log.texts().back(), ::testing::EndsWith(reused));
  }
}

/// Fetches from `host` by a transfer that ends as told; puts down the request.
Profile fetchTold(const std::string& host, std::int32_t httpCode = 200, CURLcode result = CURLE_OK,
                  const char* body = R"({"certs":["a"]})", std::shared_ptr<HttpContext>* request = nullptr) {
  const auto perform = [&](std::shared_ptr<HttpContext> context) {
    if (request != nullptr) *request = context;
    if (httpCode == 0) throw std::runtime_error("list too\nlong");
    context->httpCode = httpCode;
    context->result = result;
    context->body = body;
    return context;
  };
  return CertificateProfileClient(host, perform).fetch();
}

TEST(CertificateProfile, OnlyAWholeResponseWithACodeFrom200To299Counts) {
  const char* const one = R"({"certs":["a"]})";
  const char* const none = R"({"certs":[]})";
  const std::tuple<std::int32_t, CURLcode, const char*, std::string> table[] = {
      {199, CURLE_OK, one, kCode + "199"},
      {200, CURLE_OK, one, ""},
      {299, CURLE_OK, one, ""},
      {300, CURLE_OK, one, kCode + "300"},
      {200, CURLE_RECV_ERROR, one, kNotReceived + "transfer broke off: "},
      {200, CURLE_RECV_ERROR, none, kNotReceived + "transfer broke off: "},
      {0, CURLE_OK, one, kNotReceived + "exception: list too\\x0along, type: std::runtime_error"}};
  for (const auto& [code, result, body, error] : table) {
    const auto fetch = [&, c = code, r = result, b = body] { return fetchTold("h", c, r, b); };
    EXPECT_EQ(answerOf(fetch, error), error.empty() ? Profile(kA) : std::nullopt) << error;
  }
}

TEST(CertificateProfile, TheRequestIsBoundedAndGoesToNothingButAHost) {
  for (const std::string good :
       {"a", "127-0-0-1.x.zarn.direct:8443", "10.0.0.1:1", "[::1]", "[::ffff:10.0.0.1]:65535"}) {
    std::shared_ptr<HttpContext> request;
    EXPECT_EQ(fetchTold(good, 200, CURLE_OK, R"({"certs":["a"]})", &request), kA);
    EXPECT_EQ(request->url, "https://" + good + "/api/zmscert/profile");
    EXPECT_EQ(request->timeout, 60U);
    EXPECT_EQ(request->maxDownloadSize, 1 << 20);
  }
  using namespace std::string_literals;
  for (const auto& bad : {""s,     "a\0b"s, ":443"s,   "a:"s,     "a:0"s,         "a:65536"s,
                          "a:+1"s, "a:1x"s, "a:1:2"s,  "user@a"s, "user:1@a"s,    "a/b"s,
                          "a?b"s,  "a#b"s,  "a\\b"s,   "a b"s,    "a%2fb"s,       "::1"s,
                          "[]"s,   "[::1"s, "[::1]x"s, "[a/b]"s,  "caf\xC3\xA9"s, std::string(254, 'a')}) {
    const std::string error = kNotReceived + "invalid account service host: " + bad.substr(0, bad.find('\0'));
    EXPECT_EQ(answerOf([&] { return fetchTold(bad); }, error), std::nullopt);
  }
}

}  // namespace
}  // namespace zarn::testing
