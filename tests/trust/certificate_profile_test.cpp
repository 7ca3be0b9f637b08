#include "trust/certificate_profile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "http/http_context.h"
#include "support/recording_log.h"
#include "support/test_servers.h"
#include "trust/account_service_host.h"

namespace zarn::testing {
namespace {

using Set = std::optional<ApprovedDigests>;  // nothing when it cannot be had

const std::string kDigest = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
const std::string kNotReceived = "Error: Could not receive json data, ";
const std::string kCode = kNotReceived + "http code:  ";
const std::string kNotRead = "Error: Could not read json data, exception: ";
const std::string kTooDeep = kNotRead + "nested too deeply, type: zarn::ProfileNestingError";

/// No error, or one that begins like this.
void expectError(const RecordingLog& log, const std::string& start) {
  std::size_t errors = 0;
  for (const auto& [level, text] : log.lines()) {
    if (level != LogLevel::Error) continue;
    EXPECT_THAT(text, ::testing::StartsWith(start));
    ++errors;
  }
  EXPECT_EQ(errors, start.empty() ? 0U : 1U);
}

TEST(CertificateProfile, TakesTheValuesUnderCertsAsTheyStand) {
  /// The profile's brace and arrays in it, `depth` in all.
  const auto nested = [](std::size_t depth) {
    return R"({"certs":["a"],"x":)" + std::string(depth - 1, '[') + std::string(depth - 1, ']') + "}";
  };
  const std::tuple<std::string, Set, std::string> table[] = {
      {R"({"certs":[]})", ApprovedDigests{}, ""},
      {R"({"certs":["b","a","b"],"other":{"certs":["c"]}})", {{"a", "b"}}, ""},
      {R"({"certs":{"first":"a","second":"b"}})", {{"a", "b"}}, ""},
      {R"({"certs":["ABCDEF"," a ",17]})", {{"ABCDEF", " a ", "17"}}, ""},
      {R"({"certs":["\"{[","\\"],"x":")" + std::string(1000, '{') + R"("})", {{"\"{[", "\\"}}, ""},
      {nested(32), {{"a"}}, ""},
      {nested(33), {}, kTooDeep},
      {"\"\\\\\"" + std::string(33, '['), {}, kTooDeep},  // the string ends after its backslash
      {R"({"certs":["a"]}x)", {}, kNotRead},
      {R"({"CERTS":["a"]})", {}, kNotRead + "No such node (certs), type: "},
  };
  for (const auto& [body, digests, error] : table) {
    SCOPED_TRACE(body.substr(0, 60));
    const RecordingLog log;
    EXPECT_EQ(parseCertificateProfile(body), digests);
    expectError(log, error);
  }
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
    EXPECT_EQ(fetchFrom(scenario), std::nullopt);
    expectError(log, error);
    EXPECT_EQ(fetchFrom("good"), ApprovedDigests{kDigest});
    EXPECT_THAT(log.texts().back(),
                ::testing::EndsWith("200 response from GET " + servers.url("good") + " (reused)"));
  }
}

/// A client whose transfers end as told, and the last request it made.
struct ToldClient {
  std::int32_t httpCode = 200;
  CURLcode result = CURLE_OK;
  std::shared_ptr<HttpContext> request = nullptr;

  Set fetchFrom(const std::string& host) {
    const auto perform = [&](std::shared_ptr<HttpContext> context) {
      if (httpCode == 0) throw std::runtime_error("list too\nlong");
      context->httpCode = httpCode;
      context->result = result;
      context->body = R"({"certs":["a"]})";
      return request = std::move(context);
    };
    return CertificateProfileClient(host, perform).fetch();
  }
};

TEST(CertificateProfile, OnlyAWholeResponseWithACodeFrom200To299Counts) {
  const std::tuple<std::int32_t, CURLcode, std::string> table[] = {
      {199, CURLE_OK, kCode + "199"},
      {200, CURLE_OK, ""},
      {299, CURLE_OK, ""},
      {300, CURLE_OK, kCode + "300"},
      {200, CURLE_RECV_ERROR, kNotReceived + "transfer broke off: "},
      {0, CURLE_OK, kNotReceived + "exception: list too\\x0along, type: std::runtime_error"}};
  for (const auto& [httpCode, result, error] : table) {
    const RecordingLog log;
    ToldClient client{httpCode, result};
    EXPECT_EQ(client.fetchFrom("h"), error.empty() ? Set(ApprovedDigests{"a"}) : std::nullopt);
    expectError(log, error);
  }
}

TEST(CertificateProfile, TheRequestIsBoundedAndGoesToNothingButAHost) {
  for (const auto* good :
       {"a", "127-0-0-1.x.zarn.direct:8443", "10.0.0.1:1", "[::1]", "[::ffff:10.0.0.1]:65535"}) {
    ToldClient client;
    EXPECT_EQ(client.fetchFrom(good), ApprovedDigests{"a"});
    EXPECT_EQ(client.request->url, "https://" + std::string(good) + "/api/zmscert/profile");
    EXPECT_EQ(client.request->timeout, 60U);
    EXPECT_EQ(client.request->maxDownloadSize, 1 << 20);
  }
  using namespace std::string_literals;
  for (const auto& bad : {""s,     "a\0b"s, ":443"s,   "a:"s,     "a:0"s,         "a:65536"s,
                          "a:+1"s, "a:1x"s, "a:1:2"s,  "user@a"s, "user:1@a"s,    "a/b"s,
                          "a?b"s,  "a#b"s,  "a\\b"s,   "a b"s,    "a%2fb"s,       "::1"s,
                          "[]"s,   "[::1"s, "[::1]x"s, "[a/b]"s,  "caf\xC3\xA9"s, std::string(254, 'a')}) {
    const RecordingLog log;
    ToldClient client;
    EXPECT_EQ(client.fetchFrom(bad), std::nullopt) << bad;
    EXPECT_EQ(client.request, nullptr) << bad;
    expectError(log, kNotReceived + "invalid account service host: " + bad.substr(0, bad.find('\0')));
  }
}

}  // namespace
}  // namespace zarn::testing
