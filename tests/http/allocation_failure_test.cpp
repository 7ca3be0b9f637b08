// Requests while memory runs out. Every allocation of this program goes through here,
// so that any one of them, or all from one on, can be made to fail; those of the C
// libraries cannot.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <thread>

#include "http/http_client.h"
#include "support/failing_new.h"
#include "support/recording_log.h"
#include "support/test_servers.h"

namespace zarn::testing {
namespace {

using namespace std::chrono_literals;

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

class AllocationFailure : public ::testing::Test {
 protected:
  AllocationFailure() { isTestsOwn = true; }
  ~AllocationFailure() override { isTestsOwn = false; }

  static void disarm() { allocationsLeft = kNever; }

  std::shared_ptr<HttpContext> request(const std::string& scenario) const {
    auto ctx = HttpContext::create(servers_.url(scenario), "GET");
    ctx->cacert = servers_.file("ca");
    ctx->timeout = 20;
    ctx->maxDownloadSize = 1 << 20;
    return ctx;
  }

  /// Null when the request was refused at once, which is an answer too.
  static std::shared_ptr<HttpClient::Response> submit(const std::shared_ptr<HttpContext>& ctx,
                                                      HttpClientRunner& runner) {
    isTestsOwn = false;
    std::shared_ptr<HttpClient::Response> promise;
    try {
      promise = HttpClient::submit(ctx, runner);
    } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): see above
    }
    isTestsOwn = true;
    return promise;
  }

  static bool settles(const std::shared_ptr<HttpClient::Response>& promise) {
    const auto settled = std::make_shared<std::promise<void>>();
    promise->then([settled](HttpClient::Response&) { settled->set_value(); });
    return settled->get_future().wait_for(10s) == std::future_status::ready;
  }

  /// Makes each allocation in turn fail that a request to `scenario` costs, then all from
  /// each on: the promise that `attempt` returns, if any, is settled in time, whatever with.
  template <typename Attempt>
  void failEach(const std::string& scenario, Attempt attempt) {
    for (const bool once : {true, false}) {
      std::int64_t n = 0;
      do {
        SCOPED_TRACE(scenario + (once ? ", allocation " : ", from allocation ") + std::to_string(++n));
        log_.clear();
        const auto ctx = request(scenario);
        failures = 0;
        failsOnce = once;
        allocationsLeft = n;
        const auto promise = attempt(ctx);
        // Memory that is gone for good would leave nobody to settle anything.
        if (!once) disarm();
        ASSERT_TRUE(!promise || settles(promise));
        disarm();
      } while (failures != 0 || n < 5);
      EXPECT_GT(n, 10);
    }
  }
  const TestServers& servers_ = TestServers::instance();
  RecordingLog log_;
};

TEST_F(AllocationFailure, SettlesEveryRequestAndTheNextOneIsServed) {
  for (const std::string scenario : {"plain_http", "good"}) {
    HttpClientRunner runner;
    failEach(scenario, [&](const auto& ctx) {
      auto promise = submit(ctx, runner);
      if (!failsOnce) std::this_thread::sleep_for(5ms);
      return promise;
    });
    EXPECT_EQ(HttpClient::submit(request(scenario), runner)->wait()->httpCode, 200);
  }
}

TEST_F(AllocationFailure, ARunnerThatCannotBeMadeOrEndsSettlesItsRequests) {
  failEach("silent", [](const auto& ctx) {
    std::shared_ptr<HttpClient::Response> promise;
    isTestsOwn = false;
    try {
      HttpClientRunner runner;
      promise = submit(ctx, runner);
      std::this_thread::sleep_for(1ms);
      isTestsOwn = false;
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): no runner, and nothing to settle
    }
    isTestsOwn = true;
    disarm();
    return promise;
  });
}

}  // namespace
}  // namespace zarn::testing
