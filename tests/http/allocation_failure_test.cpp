// Requests while memory runs out. Every allocation of this program goes through here,
// so that any one of them, or all from one on, can be made to fail; those of the C
// libraries cannot.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <limits>
#include <new>
#include <optional>
#include <thread>

#include "http/http_client.h"
#include "support/recording_log.h"
#include "support/test_servers.h"

namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

std::atomic<std::int64_t> allocationsLeft{kNever};  ///< until one fails
std::atomic<bool> failsOnce{true};
std::atomic<int> failures{0};
/// The test's own allocations are not the client's.
thread_local bool isTestsOwn = false;

void* allocate(std::size_t size) {
  if (!isTestsOwn && allocationsLeft.load(std::memory_order_relaxed) != kNever) {
    const std::int64_t left = allocationsLeft--;
    if (left == 1 || (left < 1 && !failsOnce)) {
      ++failures;
      throw std::bad_alloc();
    }
  }
  void* const memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* allocateQuietly(std::size_t size) noexcept {
  try {
    return allocate(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
  return allocateQuietly(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
  return allocateQuietly(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*unused*/) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t& /*unused*/) noexcept {
  std::free(memory);
}

namespace zarn::testing {
namespace {

using namespace std::chrono_literals;

class AllocationFailure : public ::testing::Test {
 protected:
  AllocationFailure() { isTestsOwn = true; }
  ~AllocationFailure() override { isTestsOwn = false; }

  /// Makes the n-th allocation from here on fail, or all from it on.
  static void arm(std::int64_t n, bool once) {
    failures = 0;
    failsOnce = once;
    allocationsLeft = n;
  }
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

  /// Whether the promise is settled in time, whatever with.
  static bool settles(const std::shared_ptr<HttpClient::Response>& promise, std::chrono::seconds limit) {
    const auto settled = std::make_shared<std::promise<void>>();
    promise->then([settled](HttpClient::Response& response) {
      try {
        static_cast<void>(response.wait());
      } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): looked at
      }
      settled->set_value();
    });
    return settled->get_future().wait_for(limit) == std::future_status::ready;
  }

  const TestServers& servers_ = TestServers::instance();
  RecordingLog log_;
};

TEST_F(AllocationFailure, SettlesEveryRequestAndTheNextOneIsServed) {
  for (const std::string scenario : {"plain_http", "good"}) {
    for (const bool once : {true, false}) {
      HttpClientRunner runner;
      std::int64_t n = 0;
      do {
        SCOPED_TRACE(scenario + (once ? ", allocation " : ", from allocation ") + std::to_string(++n));
        log_.clear();
        const auto ctx = request(scenario);
        arm(n, once);
        const auto promise = submit(ctx, runner);
        // Memory that is gone for good would leave nobody to settle anything.
        if (!once) std::this_thread::sleep_for(5ms);
        if (!once) disarm();
        ASSERT_TRUE(!promise || settles(promise, 10s));
        disarm();
      } while (failures != 0 || n < 5);
      EXPECT_GT(n, 10);
      EXPECT_EQ(HttpClient::submit(request(scenario), runner)->wait()->httpCode, 200);
    }
  }
}

TEST_F(AllocationFailure, ARunnerThatCannotBeMadeOrEndsSettlesItsRequests) {
  for (const bool once : {true, false}) {
    std::int64_t n = 0;
    do {
      SCOPED_TRACE((once ? "allocation " : "from allocation ") + std::to_string(++n));
      log_.clear();
      const auto underWay = request("silent");
      std::shared_ptr<HttpClient::Response> promise;
      arm(n, once);
      isTestsOwn = false;
      try {
        HttpClientRunner runner;
        promise = submit(underWay, runner);
        std::this_thread::sleep_for(1ms);
        isTestsOwn = false;
      } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): no runner, and nothing to settle
      }
      isTestsOwn = true;
      disarm();
      ASSERT_TRUE(!promise || settles(promise, 10s));
    } while (failures != 0 || n < 5);
    EXPECT_GT(n, 10);
  }
}

}  // namespace
}  // namespace zarn::testing
