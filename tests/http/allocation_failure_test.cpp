// Requests while memory runs out. Every allocation of this program goes through here,
// so that any one of them, or all from one on, can be made to fail; those of the C
// libraries cannot.
#include "http/http_client.h"
#include "support/failing_new.h"
#include "support/test.h"
#include "support/test_servers.h"

namespace zarn::testing {
namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

std::atomic<std::int64_t> allocationsLeft{kNever};  ///< until one fails
std::atomic<bool> failsOnce{true};
std::atomic<int> failures{0};
/// The test's own allocations are not the client's.
thread_local bool isTestsOwn = false;

}  // namespace

bool allocationFails() noexcept {
  if (isTestsOwn || allocationsLeft.load(std::memory_order_relaxed) == kNever) return false;
  const std::int64_t left = allocationsLeft--;
  const bool fails = left == 1 || (left < 1 && !failsOnce);
  if (fails) ++failures;
  return fails;
}

namespace {

std::shared_ptr<HttpContext> request(const std::string& scenario) {
  const TestServers servers;
  auto ctx = HttpContext::create(servers.url(scenario), "GET");
  ctx->cacert = servers.file("ca");
  ctx->timeout = 20;
  ctx->maxDownloadSize = 1 << 20;
  return ctx;
}

/// Makes each allocation in turn fail that a request to `scenario` costs, then all from each
/// on: the promise that `attempt` returns is settled in time, whatever with. There is none
/// when it throws, which is an answer too.
template <typename Attempt>
void failEach(const std::string& scenario, Attempt attempt) {
  const RecordingLog log;
  for (const bool once : {true, false}) {
    std::int64_t n = 0;
    do {
      SCOPED_TRACE(scenario + (once ? ", allocation " : ", from allocation ") + std::to_string(++n));
      const auto ctx = request(scenario);
      std::shared_ptr<HttpClient::Response> promise;
      failures = 0;
      failsOnce = once;
      allocationsLeft = n;
      isTestsOwn = false;
      try {
        attempt(ctx, promise);
      } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): see above
      }
      isTestsOwn = true;
      // Memory that is gone for good would leave nobody to settle anything.
      if (!once) std::this_thread::sleep_for(5ms), allocationsLeft = kNever;
      const auto settled = std::make_shared<std::promise<void>>();
      if (promise) promise->then([settled](auto&) { settled->set_value(); });
      ASSERT_TRUE(!promise || settled->get_future().wait_for(10s) == std::future_status::ready);
      allocationsLeft = kNever;
    } while (failures != 0 || n < 5);
    EXPECT_GT(n, 10);
  }
}

TEST(AllocationFailure, SettlesEveryRequestAndTheNextOneIsServed) {
  isTestsOwn = true;
  for (const std::string scenario : {"plain_http", "good"}) {
    HttpClientRunner runner;
    failEach(scenario, [&](const auto& ctx, auto& promise) { promise = HttpClient::submit(ctx, runner); });
    EXPECT_EQ(HttpClient::submit(request(scenario), runner)->wait()->httpCode, 200);
  }
  // A runner that cannot be made, or ends.
  failEach("silent", [](const auto& ctx, auto& promise) {
    HttpClientRunner runner;
    promise = HttpClient::submit(ctx, runner);
    std::this_thread::sleep_for(1ms);
  });
}

}  // namespace
}  // namespace zarn::testing
