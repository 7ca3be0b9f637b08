// Every system call, every allocation and every thread of what is portable fails once, and some
// in a row, whoever asks for it: what becomes of that is in outcomes.txt, or the test fails.
// ZARN_LONG=1 takes every one in its turn, else as many as fit into seconds, from a printed seed.
#include <unistd.h>

#include <iostream>
#include <random>

#include "faults/call_switch_posix.h"
#include "sweep/known_outcome.h"
#include "sweep/scenarios.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#else
static int __lsan_do_recoverable_leak_check() {
  return 0;
}  // NOLINT(bugprone-reserved-identifier)
#endif

namespace zarn::testing {
namespace {

using faults::Kind;
constexpr const char* kKinds[] = {"calls", "memory", "threads"};
/// All reasons that are given in turn, the last of them for a signal.
constexpr int kErrors[] = {EIO, ENOSPC, EMFILE, EACCES, EINTR};

std::set<std::string> entriesOf(const char* folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    boost::system::error_code gone;
    names.insert(entry.path().filename().string() + " " + fs::read_symlink(entry.path(), gone).string());
  }
  return names;
}

// ---- One after the other ------------------------------------------------------------------

struct EveryCall : ::testing::Test {
  static void SetUpTestSuite() {
    isInstalled = faults::install();
    const IoDeadline first(1s);  // its thread is there for good
    seed =
        std::getenv("ZARN_SEED") != nullptr ? std::stoul(std::getenv("ZARN_SEED")) : std::random_device()();
    std::cout << "seed " << seed << (isLong ? ", every one\n" : ", some of them\n");
  }
  static inline bool isInstalled = false;
  static inline const bool isLong = std::getenv("ZARN_LONG") != nullptr;
  static inline unsigned long seed = 0;
};

template <typename Scenario>
std::string once(faults::Plan plan, faults::Report& report) {
  Scenario scenario;
  if constexpr (requires { Scenario::kSpared; }) plan.spared = Scenario::kSpared;
  faults::arm(plan);
  scenario.act();
  report = faults::disarm();
  SCOPED_TRACE("failed: " + report.lastFailed);
  return scenario.judge();
}

/// `most` runs of each kind in the short form.
template <typename Scenario>
void sweep(const std::string& name, std::int64_t most, std::int64_t inARow) {
  if (!EveryCall::isInstalled) GTEST_SKIP() << "this system lets no program filter its own calls";
  faults::Report report;
  once<Scenario>({}, report);  // what is made once a process is there now
  const auto before = entriesOf("/proc/self/fd");
  const auto threads = entriesOf("/proc/self/task").size();
  std::mt19937_64 random(EveryCall::seed);
  for (const Kind kind : {Kind::Calls, Kind::Memory, Kind::Threads}) {
    once<Scenario>({.kind = kind}, report);
    const auto counted = report.counted;
    const auto sites = report.sites.size();
    const std::int64_t errors = kind == Kind::Calls && EveryCall::isLong ? std::ssize(kErrors) : 1;
    const std::int64_t step = EveryCall::isLong ? 1 : std::max<std::int64_t>(1, counted / most);
    std::map<std::string, int> outcomes;
    const std::string row = name + " | " + kKinds[static_cast<int>(kind)];
    int runs = 0;
    for (std::int64_t n = 1 + static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(step));
         n <= counted; n += step) {
      for (std::int64_t error = 0; error < 2 * errors; ++error) {
        if (error % 2 != 0 && inARow == 1) continue;
        const int chosen = kErrors[(error / 2 + (errors == 1 ? n : 0)) % std::ssize(kErrors)];
        const faults::Plan plan{kind, n, error % 2 == 0 ? 1 : inARow, chosen};
        SCOPED_TRACE(name + ", " + kKinds[static_cast<int>(kind)] + " " + std::to_string(n) + " x" +
                     std::to_string(plan.count) + ", error " + std::to_string(chosen));
        std::cerr << "." << n;
        ::alarm(60);
        ++outcomes[once<Scenario>(plan, report)];
        ++runs;
        EXPECT_LE(entriesOf("/proc/self/fd").size(), before.size()) << ::testing::PrintToString(before);
        if (::testing::Test::HasFailure()) return;
      }
    }
    ::alarm(0);
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
    std::cout << row << " | " << sites << " sites, " << counted << " counted, " << runs << " runs";
    for (const auto& [outcome, count] : outcomes) {
      std::cout << " | " << outcome << ": " << count;
      EXPECT_TRUE(isKnown(row + " | " + outcome)) << outcome;
    }
    std::cout << std::endl;
  }
  EXPECT_EQ(entriesOf("/proc/self/task").size(), threads);
}

TEST_F(EveryCall, OfALogsLife) {
  sweep<LogLife>("log", 12, 1000);
}
TEST_F(EveryCall, OfALogsEnd) {
  sweep<LogEnd>("log's end", 10, 1000);
}
TEST_F(EveryCall, OfTheRecord) {
  sweep<Record>("record", 20, 1000);
}
TEST_F(EveryCall, OfTheCollection) {
  sweep<Collection>("collection", 20, 1);
}
TEST_F(EveryCall, OfAProfile) {
  sweep<Profile>("profile", 15, 12);
}
TEST_F(EveryCall, OfAPool) {
  sweep<Pool>("pool", 12, 1000);
}

}  // namespace
}  // namespace zarn::testing
