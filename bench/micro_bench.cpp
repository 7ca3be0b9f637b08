// micro_bench candidate=NAME repeat=N: one small operation, again and again.
#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <future>
#include <latch>
#include <memory>
#include <thread>

#include "http/elastic_thread_pool.h"
#include "http/promise.h"
#include "measure.h"
#include "util/logging.h"

namespace zarn::bench {
namespace {

void reportEach(Clock::time_point start, std::size_t repeat) {
  report("ns", seconds(Clock::now() - start) * 1e9 / static_cast<double>(repeat));
}

// ---- A log call below the threshold, and the least that could decide that ----------

struct CountingSink final : LogSink {
  std::size_t lines = 0;
  void submit(LogLevel /*level*/, std::string_view /*message*/) override { ++lines; }
  [[noreturn]] void fatal(const std::string& /*message*/) override { std::abort(); }
};

void suppressedCall(std::size_t repeat) {
  CountingSink sink;
  setLogSink(&sink);
  const auto start = Clock::now();
  for (std::size_t i = 0; i < repeat; ++i) logLine(LogLevel::Debug, "line %zu", i);
  reportEach(start, repeat);
  logLine(LogLevel::Info, "a line that passes");
  setLogSink(nullptr);
  require(sink.lines == 1, "the threshold does not hold");
}

void atomicLoad(std::size_t repeat) {
  std::atomic<int> threshold{2};
  keep(threshold);
  std::size_t passed = 0;
  const auto start = Clock::now();
  for (std::size_t i = 0; i < repeat; ++i) {
    if (threshold.load(std::memory_order_acquire) >= 3) ++passed;
  }
  reportEach(start, repeat);
  require(passed == 0, "the threshold does not hold");
}

// ---- A result made, settled and read, on one thread ---------------------------------

void zarnPromise(std::size_t repeat) {
  std::size_t sum = 0;
  const auto start = Clock::now();
  for (std::size_t i = 0; i < repeat; ++i) {
    const auto promise = Promise<std::size_t>::Create();
    promise->resolve(i);
    sum += promise->wait();
  }
  reportEach(start, repeat);
  require(sum == repeat * (repeat - 1) / 2, "a promise lost its value");
}

void standardPromise(std::size_t repeat) {
  std::size_t sum = 0;
  const auto start = Clock::now();
  for (std::size_t i = 0; i < repeat; ++i) {
    std::promise<std::size_t> promise;
    auto future = promise.get_future();
    promise.set_value(i);
    sum += future.get();
  }
  reportEach(start, repeat);
  require(sum == repeat * (repeat - 1) / 2, "a promise lost its value");
}

/// The same while another thread sleeps: with one thread only, the C library makes
/// locks and counters plain, which no process that needs promises has.
template <void (*run)(std::size_t)>
void besideThread(std::size_t repeat) {
  std::promise<void> end;
  std::thread sleeper([&] { end.get_future().wait(); });
  run(repeat);
  end.set_value();
  sleeper.join();
}

// ---- Pools of four workers ------------------------------------------------------------

constexpr std::size_t kWorkers = 4;

struct ZarnPool {
  ElasticThreadPool pool{kWorkers, kWorkers};
  template <typename Task>
  void post(Task task) {
    pool.post(std::move(task));
  }
};

struct AsioPool {
  boost::asio::thread_pool pool{kWorkers};
  template <typename Task>
  void post(Task task) {
    boost::asio::post(pool, std::move(task));
  }
};

/// All workers exist and have run something.
template <typename Pool>
void warmUp(Pool& pool) {
  const auto all = std::make_shared<std::latch>(kWorkers + 1);
  for (std::size_t i = 0; i < kWorkers; ++i) pool.post([all] { all->arrive_and_wait(); });
  all->arrive_and_wait();
}

template <typename Pool>
void emptyTasks(std::size_t repeat) {
  std::atomic<std::size_t> left{repeat};
  Pool pool;
  warmUp(pool);
  const auto start = Clock::now();
  for (std::size_t i = 0; i < repeat; ++i) {
    pool.post([&left] {
      if (left.fetch_sub(1) == 1) left.notify_one();
    });
  }
  for (std::size_t now = left; now != 0; now = left) left.wait(now);
  report("tasks_per_s", static_cast<double>(repeat) / seconds(Clock::now() - start));
  require(left == 0, "a task ran twice");
}

/// From the post to the task's begin, when every worker sleeps.
template <typename Pool>
void handOff(std::size_t repeat) {
  Pool pool;
  warmUp(pool);
  std::vector<double> waits;
  for (std::size_t i = 0; i < repeat; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::promise<Clock::time_point> begun;
    const auto start = Clock::now();
    pool.post([&begun] { begun.set_value(Clock::now()); });
    waits.push_back(seconds(begun.get_future().get() - start) * 1e6);
  }
  report("p50_us", percentile(waits, 0.5));
  require(waits.size() == repeat, "a task is missing");
}

void measure(const Options& options) {
  struct Candidate {
    std::string_view name;
    void (*run)(std::size_t repeat);
  };
  static constexpr std::array<Candidate, 10> kCandidates = {{
      {"suppressed-call", suppressedCall},
      {"atomic-load", atomicLoad},
      {"promise-zarn", zarnPromise},
      {"promise-std", standardPromise},
      {"promise-zarn-beside-thread", besideThread<zarnPromise>},
      {"promise-std-beside-thread", besideThread<standardPromise>},
      {"tasks-zarn", emptyTasks<ZarnPool>},
      {"tasks-asio", emptyTasks<AsioPool>},
      {"hand-off-zarn", handOff<ZarnPool>},
      {"hand-off-asio", handOff<AsioPool>},
  }};
  byName(kCandidates, options.text("candidate")).run(options.number("repeat"));
}

}  // namespace
}  // namespace zarn::bench

int main(int count, char** arguments) {
  return zarn::bench::runBenchmark(count, arguments, zarn::bench::measure);
}
