// What the client of the account service bears: a seeded programme of hostile answers
// (tools/stage/hostile.py). ZARN_LONG=1 asks for many more of them, ZARN_SEED=N for those of that seed.
#ifdef __SANITIZE_ADDRESS__
extern "C" unsigned long __sanitizer_get_current_allocated_bytes();  // the compiler brings no header for it
#else
#include <malloc.h>
#endif

#include <random>

#include "http/http_client.h"
#include "os/process.h"
#include "support/test.h"
#include "support/test_servers.h"
#include "trust/certificate_profile.h"

namespace zarn::testing {
namespace {

std::size_t bytesInUse() {
#ifdef __SANITIZE_ADDRESS__
  return __sanitizer_get_current_allocated_bytes();
#else
  return mallinfo2().uordblks + mallinfo2().hblkhd;
#endif
}

constexpr std::chrono::seconds kLimit{2};
constexpr char kDigest[] = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
/// Eight checks and an install.
constexpr std::size_t kAskers = 9;

struct HostileAnswers : ::testing::Test {
  /// As the profile is asked for, but for the limit.
  std::shared_ptr<HttpContext> fetch(const std::string& scenario, const std::string& path) {
    const auto context = HttpContext::create(servers.url(scenario, path), "GET");
    context->cacert = servers.file("ca");
    context->timeout = kLimit.count();
    context->maxDownloadSize = CertificateProfileClient::kMaxBodyBytes;
    const auto began = std::chrono::steady_clock::now();
    auto ended = HttpClient::submit(context, runner)->wait();
    const std::chrono::nanoseconds took = std::chrono::steady_clock::now() - began;
    if (took > longest.load()) longest = took;
    EXPECT_LE(took, kLimit + 1s) << scenario << path;
    return ended;
  }
  /// Whether an answer approves of whom the good server does.
  static bool approves(const HttpContext& context) {
    if (context.result != CURLE_OK || context.httpCode < 200 || context.httpCode > 299) return false;
    const auto profile = parseCertificateProfile(context.body);
    return profile && profile->contains(kDigest);
  }
  /// By the client of the profile itself.
  bool isGoodOneServed() const {
    const auto answer =
        CertificateProfileClient(servers.host("good"), kLimit.count(), servers.file("ca")).fetch();
    return answer && answer->contains(kDigest);
  }
  /// Fetches all of them on as many threads as the service has requests at once, the good one between them,
  /// and watches the memory.
  void expectRefused(const std::vector<std::pair<std::string, std::string>>& requests) {
    ASSERT_TRUE(isGoodOneServed());  // all is warm
    std::size_t most = bytesInUse();
    const std::size_t before = most;
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> askers;
    for (std::size_t i = 0; i < kAskers; ++i)
      askers.emplace_back([&] {
        for (std::size_t at = next++; at < requests.size(); at = next++) {
          EXPECT_FALSE(approves(*fetch(requests[at].first, requests[at].second)))
              << requests[at].first << requests[at].second;
          EXPECT_TRUE(at % 16 != 0 || isGoodOneServed());
        }
      });
    while (next < requests.size() + kAskers)
      most = std::max(most, (std::this_thread::sleep_for(1ms), bytesInUse()));
    for (auto& asker : askers) asker.join();
    std::cout << requests.size() << " hostile answers, the longest took "
              << std::chrono::duration_cast<std::chrono::milliseconds>(longest.load()).count()
              << " ms, at most " << (most - before) / 1024 << " KiB more memory\n";
    EXPECT_LE(most - before, 16U << 20);
  }

  const TestServers servers;
  HttpClientRunner runner;
  const RecordingLog log{LogLevel::Error};
  const bool isLong = environmentVariable("ZARN_LONG").has_value();
  std::atomic<std::chrono::nanoseconds> longest{0ns};
};

TEST_F(HostileAnswers, ApproveNobodyWithinTheirDeadlineAndALittleMemory) {
  const std::string seed =
      environmentVariable("ZARN_SEED").value_or(std::to_string(std::random_device{}() % 1'000'000));
  std::cout << "seed " << seed << "\n";
  std::vector<std::pair<std::string, std::string>> requests;
  for (int i = 0; i < (isLong ? 20'000 : 150); ++i)
    requests.emplace_back("programme", "/" + seed + "-" + std::to_string(i));
  expectRefused(requests);
}

TEST_F(HostileAnswers, OfServersThatAreNotTheRightOneNeitherAtAnyByteOfTheHandshake) {
  std::vector<std::pair<std::string, std::string>> requests;
  for (const char* const scenario : {"tls1_0", "tls1_1", "expired", "not_yet_valid", "wrong_host",
                                     "self_signed", "other_ca", "truncated_chain", "renegotiation"})
    requests.emplace_back(scenario, TestServers::kProfilePath);
  for (int i = 0; i < (isLong ? 3000 : 100); ++i) requests.emplace_back("tls_cut", TestServers::kProfilePath);
  expectRefused(requests);
}

}  // namespace
}  // namespace zarn::testing
