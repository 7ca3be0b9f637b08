#include "trust/certificate_profile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/algorithm/string/case_conv.hpp>

#include "http/http_context.h"
#include "support/recording_log.h"
#include "support/test_servers.h"
#include "trust/account_service_host.h"

namespace zarn::testing {
namespace {

using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::StartsWith;
using Set = std::set<std::string>;

const std::string kDigest = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
const std::string kNotReceived = "Error: Could not receive json data, ";
const std::string kCode = kNotReceived + "http code:  ";
const std::string kNotRead = "Error: Could not read json data, exception: ";

/// No error, or one that begins like this.
void expectError(const RecordingLog& log, const std::string& start) {
  std::vector<std::string> errors;
  for (const auto& line : log.lines()) {
    if (line.level == LogLevel::Error) errors.push_back(line.text);
  }
  EXPECT_EQ(errors.size(), start.empty() ? 0U : 1U) << ::testing::PrintToString(errors);
  for (const auto& error : errors) EXPECT_THAT(error, StartsWith(start));
}

std::string repeated(std::size_t count, const std::string& text) {
  std::string result;
  while (count-- > 0) result += text;
  return result;
}

TEST(CertificateProfile, TakesTheValuesUnderCertsAsTheyStand) {
  /// The profile's brace and arrays in it, `depth` in all.
  const auto nested = [](std::size_t depth) {
    return R"({"certs":["a"],"x":)" + repeated(depth - 1, "[") + repeated(depth - 1, "]") + "}";
  };
  const struct {
    std::string body;
    Set digests;
    std::string error;
  } table[] = {
      {R"({"certs":[]})", {}, ""},
      {R"({"certs":["b","a","b"],"other":{"certs":["c"]}})", {"a", "b"}, ""},
      {R"({"certs":{"first":"a","second":"b"}})", {"a", "b"}, ""},
      {R"({"certs":["ABCDEF"," a ",17]})", {"ABCDEF", " a ", "17"}, ""},
      {R"({"certs":["\"{[","\\"],"x":")" + repeated(1000, "[{") + R"("})", {"\"{[", "\\"}, ""},
      {nested(32), {"a"}, ""},
      {nested(33), {}, kNotRead + "nested too deeply, type: zarn::ProfileNestingError"},
      {"\"\\\\\"" + repeated(33, "["),
       {},
       kNotRead + "nested too deeply"},  // the string ends after its backslash
      {repeated(200'000, "{\"certs\":"), {}, kNotRead + "nested too deeply"},
      {R"({"certs":["a"])", {}, kNotRead},
      {R"({"certs":["a"]}x)", {}, kNotRead},
      {R"({"CERTS":["a"]})", {}, kNotRead + "No such node (certs), type: "},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.body.substr(0, 60));
    const RecordingLog log;
    EXPECT_EQ(parseCertificateProfile(row.body), row.digests);
    expectError(log, row.error);
  }
}

TEST(CertificateProfile, EveryServerIsAnsweredAsItDeservesAndTheNextGoodOneServes) {
  const struct {
    std::string scenario;
    Set digests;
    std::string error;
  } table[] = {
      {"good", {kDigest}, ""},
      {"gzip", {kDigest}, ""},
      {"certs_object", {kDigest}, ""},
      {"redirect", {kDigest}, ""},
      {"upper_case", {boost::to_upper_copy(kDigest)}, ""},
      {"empty_object", {}, kNotRead + "No such node (certs), type: "},
      {"garbage", {}, kNotRead},
      {"brackets", {}, kNotRead + "nested too deeply, type: "},
      {"status204", {}, kNotRead},
      {"reset", {}, kNotRead},
      {"status500", {}, kCode + "500"},
      {"status404", {}, kCode + "404"},
      {"status304", {}, kCode + "304"},
      {"redirect_loop", {}, kCode + "302"},
      {"redirect_http", {}, kCode + "302"},
      {"other_ca", {}, kCode + "0"},
      {"wrong_host", {}, kCode + "0"},
      {"empty_reply", {}, kCode + "0"},
      {"announced", {}, kCode + "400"},
      {"endless", {}, kCode + "400"},
      {"gzip_bomb", {}, kCode + "400"},
      {"silent", {}, kCode + "408"},
      {"drip", {}, kCode + "408"},
  };
  const auto& servers = TestServers::instance();
  const auto fetchFrom = [&](const std::string& scenario) {
    return CertificateProfileClient(servers.host(scenario), 1, servers.file("ca")).fetch();
  };
  EXPECT_EQ(fetchFrom("good"), Set{kDigest});
  for (const auto& row : table) {
    SCOPED_TRACE(row.scenario);
    RecordingLog log;
    EXPECT_EQ(fetchFrom(row.scenario), row.digests);
    expectError(log, row.error);

    log.clear();
    EXPECT_EQ(fetchFrom("good"), Set{kDigest});
    EXPECT_THAT(log.texts(),
                Contains(EndsWith("200 response from GET " + servers.url("good") + " (reused)")));
  }
}

/// A client whose transfers end as told, and the last request it made.
struct ToldClient {
  std::int32_t httpCode = 200;
  CURLcode result = CURLE_OK;
  std::shared_ptr<HttpContext> request = nullptr;

  Set fetchFrom(const std::string& host) {
    return CertificateProfileClient(host,
                                    [&](std::shared_ptr<HttpContext> context) {
                                      context->httpCode = httpCode;
                                      context->result = result;
                                      context->body = R"({"certs":["a"]})";
                                      return request = std::move(context);
                                    })
        .fetch();
  }
};

TEST(CertificateProfile, OnlyAWholeResponseWithACodeFrom200To299CountsWithinItsLimits) {
  for (const std::int32_t code : {-1, 0, 199, 200, 299, 300, 1200}) {
    const RecordingLog log;
    ToldClient client{code};
    const bool counts = code >= 200 && code <= 299;
    EXPECT_EQ(client.fetchFrom("h"), counts ? Set{"a"} : Set{}) << code;
    expectError(log, counts ? "" : kCode + std::to_string(code));
  }
  const RecordingLog log;
  ToldClient client{200, CURLE_RECV_ERROR};
  EXPECT_EQ(client.fetchFrom("account.example:8443"), Set{});
  EXPECT_EQ(client.request->url, "https://account.example:8443/api/zmscert/profile");
  EXPECT_EQ(client.request->timeout, 60U);
  EXPECT_EQ(client.request->maxDownloadSize, 1 << 20);
  expectError(log, kNotReceived + "transfer broke off: ");
}

TEST(CertificateProfile, ATransferThatThrowsApprovesNothing) {
  const auto expectRefused = [](auto exception, const std::string& shown) {
    const RecordingLog log;
    const auto fetch = [&](const auto&) -> std::shared_ptr<HttpContext> { throw exception; };
    EXPECT_EQ(CertificateProfileClient("h", fetch).fetch(), Set{});
    expectError(log, kNotReceived + "exception: " + shown);
  };
  expectRefused(std::runtime_error("list too\nlong"), "list too\\x0along, type: std::runtime_error");
  expectRefused(17, "unknown, type: unknown");
}

TEST(CertificateProfile, TheHostIsNothingButAHost) {
  for (const auto* good :
       {"a", "127-0-0-1.x.zarn.direct:8443", "10.0.0.1:1", "[::1]", "[::ffff:10.0.0.1]:65535"}) {
    EXPECT_TRUE(isHostWithOptionalPort(good)) << good;
  }
  const std::string badHosts[] = {"",          std::string(254, 'a'),
                                  {"a\0b", 3}, ":443",
                                  "a:",        "a:0",
                                  "a:65536",   "a:+1",
                                  "a:1x",      "a:1:2",
                                  "user@a",    "user:1@a",
                                  "a/b",       "a?b",
                                  "a#b",       "a\\b",
                                  "a b",       "a%2fb",
                                  "::1",       "[]",
                                  "[::1",      "[::1]x",
                                  "[a/b]",     "caf\xC3\xA9"};
  for (const auto& bad : badHosts) {
    const RecordingLog log;
    ToldClient client;
    EXPECT_EQ(client.fetchFrom(bad), Set{}) << bad;
    EXPECT_EQ(client.request, nullptr) << bad;
    expectError(log, kNotReceived + "invalid account service host: " + bad.substr(0, bad.find('\0')));
  }
}

}  // namespace
}  // namespace zarn::testing
