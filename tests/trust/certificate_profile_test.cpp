#include "trust/certificate_profile.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "http/http_context.h"
#include "support/recording_log.h"
#include "support/test_servers.h"
#include "trust/account_service_host.h"

namespace zarn::testing {
namespace {

using Set = std::set<std::string>;

const std::string kDigest = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
const std::string kUpperCase = "0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF";
const std::string kNotReceived = "Error: Could not receive json data, http code:  ";
const std::string kNotRead = "Error: Could not read json data, exception: ";

Set fetchFrom(const std::string& host) {
  return CertificateProfileClient(host, 1, TestServers::instance().file("ca")).fetch();
}

std::vector<std::string> errorsIn(const RecordingLog& log) {
  std::vector<std::string> errors;
  for (const auto& line : log.lines()) {
    if (line.level == LogLevel::Error) errors.push_back(line.text);
  }
  return errors;
}

TEST(CertificateProfile, EveryServerIsAnsweredAsItDeservesAndTheNextGoodOneServes) {
  const struct {
    std::string scenario;
    Set digests;
    std::string error;  // how the only error line begins
  } table[] = {
      {"good", {kDigest}, ""},
      {"gzip", {kDigest}, ""},
      {"certs_object", {kDigest}, ""},
      {"redirect", {kDigest}, ""},
      {"upper_case", {kUpperCase}, ""},
      {"empty_object", {}, kNotRead + "No such node (certs), type: "},
      {"garbage", {}, kNotRead},
      {"brackets", {}, kNotRead + "nested too deeply, type: "},
      {"status204", {}, kNotRead},
      {"reset", {}, kNotRead},
      {"status500", {}, kNotReceived + "500"},
      {"status404", {}, kNotReceived + "404"},
      {"status304", {}, kNotReceived + "304"},
      {"redirect_loop", {}, kNotReceived + "302"},
      {"redirect_http", {}, kNotReceived + "302"},
      {"other_ca", {}, kNotReceived + "0"},
      {"wrong_host", {}, kNotReceived + "0"},
      {"empty_reply", {}, kNotReceived + "0"},
      {"announced", {}, kNotReceived + "400"},
      {"endless", {}, kNotReceived + "400"},
      {"gzip_bomb", {}, kNotReceived + "400"},
      {"silent", {}, kNotReceived + "408"},
      {"drip", {}, kNotReceived + "408"},
  };
  const auto& servers = TestServers::instance();
  const std::string reused = "200 response from GET " + servers.url("good") + " (reused)";
  fetchFrom(servers.host("good"));
  for (const auto& row : table) {
    SCOPED_TRACE(row.scenario);
    RecordingLog log;
    EXPECT_EQ(fetchFrom(servers.host(row.scenario)), row.digests);
    const auto errors = errorsIn(log);
    ASSERT_EQ(errors.size(), row.error.empty() ? 0U : 1U) << ::testing::PrintToString(errors);
    EXPECT_TRUE(errors.empty() || errors[0].starts_with(row.error)) << ::testing::PrintToString(errors);

    log.clear();
    EXPECT_EQ(fetchFrom(servers.host("good")), Set{kDigest});
    const auto texts = log.texts();
    EXPECT_TRUE(std::ranges::any_of(texts, [&](const auto& text) { return text.ends_with(reused); }))
        << ::testing::PrintToString(texts);
  }
}

/// A client whose transfers end as told, and the last request it made.
struct ToldClient {
  std::int32_t httpCode = 200;
  CURLcode result = CURLE_OK;
  std::shared_ptr<HttpContext> request;

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

TEST(CertificateProfile, AsksForTheProfileWithinItsLimits) {
  ToldClient client;
  EXPECT_EQ(client.fetchFrom("account.example:8443"), Set{"a"});
  EXPECT_EQ(client.request->url, "https://account.example:8443/api/zmscert/profile");
  EXPECT_EQ(client.request->verb, "GET");
  EXPECT_EQ(client.request->timeout, 60U);
  EXPECT_EQ(client.request->connectTimeout, 15U);
  EXPECT_EQ(client.request->maxDownloadSize, 1 << 20);
  EXPECT_TRUE(client.request->followRedirects);
}

TEST(CertificateProfile, OnlyAWholeResponseWithACodeFrom200To299Counts) {
  for (const std::int32_t code : {-1, 0, 100, 199, 200, 204, 299, 300, 1200}) {
    const RecordingLog log;
    ToldClient client;
    client.httpCode = code;
    const bool counts = code >= 200 && code <= 299;
    EXPECT_EQ(client.fetchFrom("h"), counts ? Set{"a"} : Set{}) << code;
    EXPECT_EQ(errorsIn(log), counts ? std::vector<std::string>{}
                                    : std::vector<std::string>{kNotReceived + std::to_string(code)});
  }
  const RecordingLog log;
  ToldClient client;
  client.result = CURLE_RECV_ERROR;
  EXPECT_EQ(client.fetchFrom("h"), Set{});
  EXPECT_EQ(errorsIn(log).size(), 1U);
}

TEST(CertificateProfile, ATransferThatThrowsApprovesNothing) {
  const RecordingLog log;
  const auto fetchThrowing = [](auto exception) {
    return CertificateProfileClient("h",
                                    [&](const auto&) -> std::shared_ptr<HttpContext> { throw exception; })
        .fetch();
  };
  EXPECT_EQ(fetchThrowing(std::runtime_error("list too\nlong")), Set{});
  EXPECT_EQ(fetchThrowing(17), Set{});
  const std::string start = "Error: Could not receive json data, exception: ";
  EXPECT_EQ(errorsIn(log), (std::vector<std::string>{start + "list too\\x0along, type: std::runtime_error",
                                                     start + "unknown, type: unknown"}));
}

TEST(CertificateProfile, TheHostIsNothingButAHost) {
  for (const std::string good : {"a", "account.zarn.example", "127-0-0-1.x.zarn.direct:8443", "10.0.0.1:1",
                                 "[::1]", "[::ffff:10.0.0.1]:65535", "under_score"}) {
    EXPECT_TRUE(isHostWithOptionalPort(good)) << good;
  }
  for (const std::string bad : {"",
                                ":443",
                                "a:",
                                "a:0",
                                "a:65536",
                                "a:+1",
                                "a:1x",
                                "a:1:2",
                                "user@a",
                                "user:1@a",
                                "a/b",
                                "a?b",
                                "a#b",
                                "a\\b",
                                "a b",
                                "a\r\nX: y",
                                "a%2fb",
                                "::1",
                                "[]",
                                "[::1",
                                "[::1]x",
                                "[::1]:",
                                "[a/b]",
                                "[fe80::1%25x]",
                                "caf\xC3\xA9",
                                "https://a"}) {
    const RecordingLog log;
    ToldClient client;
    EXPECT_EQ(client.fetchFrom(bad), Set{}) << bad;
    EXPECT_EQ(client.request, nullptr) << bad;
    EXPECT_EQ(errorsIn(log).size(), 1U) << bad;
  }
  ToldClient client;
  EXPECT_EQ(client.fetchFrom(std::string(254, 'a')), Set{});
  EXPECT_EQ(client.fetchFrom(std::string("a\0b", 3)), Set{});
}

void setHostVariable(const char* value) {
#ifdef _WIN32
  _putenv_s("ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST", value);  // "" removes it
#else
  setenv("ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST", value, 1);
#endif
}

TEST(CertificateProfile, TheEnvironmentMayNameAnotherHostButNotAnotherPath) {
  const RecordingLog log;
  setHostVariable("other.example/profile?\n");
  EXPECT_EQ(FetchCertificateProfile(), Set{});
  EXPECT_EQ(errorsIn(log), (std::vector<std::string>{"Error: Could not receive json data, invalid account "
                                                     "service host: other.example/profile?\\x0a"}));
  setHostVariable("");
  EXPECT_TRUE(isHostWithOptionalPort(accountServiceHost())) << accountServiceHost();
}

}  // namespace
}  // namespace zarn::testing
