// log_bench candidate=NAME cell=burst|paced|flood producers=N text=BYTES lines=N
//           directory=EMPTY-DIRECTORY
//
// burst: 20 calls, then 1 ms pause; what a call takes. paced: a call every 200 us.
// flood: as fast as it goes, until every line is in the file. `lines` is what each
// producer logs. Afterwards the files must hold every line exactly once.
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <x86intrin.h>

#include <array>
#include <barrier>
#include <filesystem>
#include <fstream>
#include <thread>

#include "log_candidates.h"
#include "measure.h"

namespace zarn::bench {
namespace {

constexpr int kFirstNumber = 1'000'000;  // all numbers have the same width
constexpr int kCallsInBurst = 20;
constexpr std::chrono::milliseconds kPauseAfterBurst{1};
constexpr std::chrono::microseconds kPace{200};

class BareWrite final : public LogCandidate {
 public:
  explicit BareWrite(const std::string& directory)
      : file_(::open((directory + "/bench.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644)) {
    require(file_ != -1, "cannot make the file");
  }
  ~BareWrite() override { ::close(file_); }

  void log(const LogMessage& message) override {
    if (line_.empty()) line_ = kPrefix + std::to_string(message.number) + " " + message.text + "\n";
    line_[kPrefix.size() - 1] = message.producer;
    std::to_chars(line_.data() + kPrefix.size(), line_.data() + line_.size(), message.number);
    const ssize_t written = ::write(file_, line_.data(), line_.size());
    require(written == static_cast<ssize_t>(line_.size()), "short write");
  }

 private:
  inline static const std::string kPrefix = "Nov 15, 2026 22:42:15.123 [123456] INFO - #a";
  int file_;
  std::string line_;
};

const std::array<LogMaker, 6> kLoggers = {{{"zarn", makeZarnLog},
                                           {"spdlog", makeSpdlogAsync},
                                           {"glog", makeGlog},
                                           {"boost-async", makeBoostLogAsync},
                                           {"boost-sync", makeBoostLogSync},
                                           {"write", makeBareWrite}}};

/// Nanoseconds of one tick of the processor's time-stamp counter, which costs
/// less to read than the clock.
double nanosecondsPerTick() {
  const auto start = Clock::now();
  const auto ticks = __rdtsc();
  while (Clock::now() - start < std::chrono::milliseconds(20)) {
  }
  return seconds(Clock::now() - start) * 1e9 / static_cast<double>(__rdtsc() - ticks);
}

struct Run {
  LogCandidate& log;
  std::size_t producers;
  int lines;
  std::string text;
  std::vector<std::vector<std::uint64_t>> ticks;

  void timedCall(std::size_t producer, int line) {
    const std::uint64_t start = __rdtsc();
    call(producer, line);
    ticks[producer].push_back(__rdtsc() - start);
  }
  void call(std::size_t producer, int line) const {
    log.log({static_cast<char>('a' + producer), kFirstNumber + line, text});
  }
};

void burst(Run& run, std::size_t producer) {
  for (int line = 0; line < run.lines; ++line) {
    if (line % kCallsInBurst == 0) std::this_thread::sleep_for(kPauseAfterBurst);
    run.timedCall(producer, line);
  }
}

void paced(Run& run, std::size_t producer) {
  auto next = Clock::now();
  for (int line = 0; line < run.lines; ++line) {
    std::this_thread::sleep_until(next += kPace);
    run.timedCall(producer, line);
  }
}

void flood(Run& run, std::size_t producer) {
  for (int line = 0; line < run.lines; ++line) run.call(producer, line);
}

/// Seconds until every line is in the file.
double perform(Run& run, void (*produce)(Run&, std::size_t)) {
  std::barrier together(static_cast<std::ptrdiff_t>(run.producers) + 1);
  std::vector<std::thread> threads;
  for (std::size_t producer = 0; producer < run.producers; ++producer) {
    run.ticks.emplace_back().reserve(static_cast<std::size_t>(run.lines));
    threads.emplace_back([&, producer] {
      ::prctl(PR_SET_TIMERSLACK, 1);  // pauses end when they should
      together.arrive_and_wait();
      produce(run, producer);
    });
  }
  together.arrive_and_wait();
  const auto start = Clock::now();
  for (std::thread& thread : threads) thread.join();
  run.log.flush();
  return seconds(Clock::now() - start);
}

/// Every line once, and whole.
void verify(const Run& run, const std::string& directory) {
  std::vector<std::vector<bool>> seen(run.producers, std::vector<bool>(static_cast<std::size_t>(run.lines)));
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path());
    for (std::string line; std::getline(file, line);) {
      const std::size_t mark = line.find('#');
      if (mark == std::string::npos) continue;
      const std::string_view message = std::string_view(line).substr(mark + 1);
      require(message.size() == 9 + run.text.size() && message.ends_with(run.text),
              "a line is torn: " + line.substr(0, 80));
      int number = 0;
      std::from_chars(message.data() + 1, message.data() + 8, number);
      const auto flag = seen.at(static_cast<std::size_t>(message[0] - 'a')).begin() + (number - kFirstNumber);
      require(number >= kFirstNumber && number < kFirstNumber + run.lines && !*flag,
              "a line is there twice: " + line.substr(0, 80));
      *flag = true;
      ++count;
    }
  }
  require(count == run.producers * static_cast<std::size_t>(run.lines), "lines are missing");
}

void reportCalls(const Run& run) {
  std::vector<std::uint64_t> all;
  for (const auto& ticks : run.ticks) all.insert(all.end(), ticks.begin(), ticks.end());
  if (all.empty()) return;
  const double scale = nanosecondsPerTick();
  report("p50_ns", static_cast<double>(percentile(all, 0.5)) * scale);
  report("p99_ns", static_cast<double>(percentile(all, 0.99)) * scale);
}

void measure(const Options& options) {
  struct Cell {
    std::string_view name;
    void (*produce)(Run&, std::size_t);
  };
  static constexpr std::array<Cell, 3> kCells = {{{"burst", burst}, {"paced", paced}, {"flood", flood}}};

  const std::string directory = options.text("directory");
  const auto log = byName(kLoggers, options.text("candidate")).make(directory);
  Run run{*log,
          options.number("producers"),
          static_cast<int>(options.number("lines")),
          std::string(options.number("text"), 't'),
          {}};
  const double duration = perform(run, byName(kCells, options.text("cell")).produce);
  verify(run, directory);
  const double lines = static_cast<double>(run.producers) * static_cast<double>(run.lines);
  report("lines_per_s", lines / duration);
  report("text_bytes_per_s", lines * static_cast<double>(run.text.size()) / duration);
  reportCalls(run);
}

}  // namespace

std::unique_ptr<LogCandidate> makeBareWrite(const std::string& directory) {
  return std::make_unique<BareWrite>(directory);
}

}  // namespace zarn::bench

int main(int count, char** arguments) {
  return zarn::bench::runBenchmark(count, arguments, zarn::bench::measure);
}
