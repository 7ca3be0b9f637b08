#include "trust/certificate_profile.h"

#include <fmt/ranges.h>

#include "http/http_context.h"
#include "support/recording_events.h"
#include "support/test.h"

namespace zarn::testing {
namespace {

constexpr char kOne[] = R"({"certs":["a"]})";
const std::string kNotReceived = "Error: Could not receive json data, ";
const std::string kCode = kNotReceived + "http code:  ";
const std::string kNotRead = "Error: Could not read json data, exception: ";
const std::string kTooDeep = kNotRead + "nested too deeply, type: zarn::ProfileNestingError";

/// The error that is logged, or the profile in brackets: never both.
template <typename Fetch>
std::string outcomeOf(const Fetch& fetch) {
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
  /// `values` in all, and a string with more commas than may be.
  const auto long_ = [](int values) {
    std::string text = R"({"x":")" + std::string(kMaxProfileValues, ',') + R"(","certs":["a")";
    for (int i = 4; i < values; ++i) text += R"(,"a")";
    return text + "]}";
  };
  auto rows = tableIn("trust/profiles.txt");
  rows.insert(rows.end(),
              {{kNotRead, ""},
               {"[a]", nested(32)},
               {kTooDeep, nested(33)},
               {"[a]", long_(kMaxProfileValues)},
               {kNotRead + "too many values, type: zarn::ProfileSizeError", long_(kMaxProfileValues + 1)}});
  for (const Lines& row : rows)
    EXPECT_THAT(outcomeOf([&] { return parseCertificateProfile(row[1]); }), StartsWith(row[0])) << row[1];
}

std::string reason;  // that the last told fetch gave

/// The outcome of a fetch from `host` by a transfer that ends as told; puts down the request.
std::string outcomeOfTold(const std::string& host, std::int32_t httpCode = 200, CURLcode result = CURLE_OK,
                          std::shared_ptr<HttpContext>* request = nullptr) {
  const auto perform = [&](std::shared_ptr<HttpContext> context) {
    if (request != nullptr) *request = context;
    if (httpCode == 0) throw std::runtime_error("list too\nlong");
    std::tie(context->httpCode, context->result, context->body) = std::tuple(httpCode, result, kOne);
    return context;
  };
  return outcomeOf([&] {
    auto answer = CertificateProfileClient(host, perform).fetch();
    reason = answer ? "" : answer.error().reason;
    return answer;
  });
}

TEST(CertificateProfile, OnlyAWholeResponseWithACodeFrom200To299Counts) {
  const std::tuple<std::int32_t, CURLcode, std::string, std::string> table[] = {
      {199, CURLE_OK, kCode + "199", "HTTP status 199"},
      {200, CURLE_OK, "[a]", ""},
      {299, CURLE_OK, "[a]", ""},
      {300, CURLE_OK, kCode + "300", "HTTP status 300"},
      {0, CURLE_OK, kNotReceived + "exception: list too\\x0along, type: std::runtime_error",
       "list too\nlong"},
      {200, CURLE_RECV_ERROR,
       kNotReceived + "transfer broke off: ", "Failure when receiving data from the peer"}};
  for (const auto& [httpCode, result, outcome, event] : table) {
    RecordingEvents events;
    EXPECT_THAT(outcomeOfTold("h", httpCode, result), StartsWith(outcome));
    EXPECT_EQ(events.take(), event.empty() ? Lines() : Lines{"1010|h|" + event});
    EXPECT_EQ(reason, event.starts_with("HTTP") ? "HTTP " + std::to_string(httpCode) : event);
  }
}

TEST(CertificateProfile, TheRequestIsBoundedAndGoesToNothingButAHost) {
  auto rows = tableIn("trust/hosts.txt");
  rows.insert(rows.end(), {{"bad", ""}, {"bad", "a\0b"s}, {"bad", std::string(254, 'a')}});
  for (const Lines& row : rows) {
    const std::string& host = row[1];
    RecordingEvents events;
    std::shared_ptr<HttpContext> request;
    const std::string outcome = outcomeOfTold(host, 200, CURLE_OK, &request);
    ASSERT_EQ(request != nullptr, row[0] == "good") << host;
    if (request) {
      EXPECT_EQ(outcome + request->url, "[a]https://" + host + "/api/zmscert/profile");
      EXPECT_TRUE(request->timeout == 60 && request->maxDownloadSize == 1 << 20);
      continue;
    }
    EXPECT_THAT(outcome, StartsWith(kNotReceived +
                                    "invalid account service host: " + host.substr(0, host.find('\0'))));
    EXPECT_EQ(events.take().at(0), "1010||its name is no host");
  }
}

}  // namespace
}  // namespace zarn::testing
