// A pipe that nobody reads, put in the place of the log file, stands for a disk that stands still.
#include <fcntl.h>
#include <unistd.h>

#include "log/probe_log.h"

namespace zarn::testing {
namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  /// What is written to the file from here on goes into the pipe.
  explicit Pipe(const std::string& path) {
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
      boost::system::error_code gone;
      if (fs::read_symlink(entry.path(), gone) != path) continue;
      EXPECT_NE(::dup2(ends[1], std::stoi(entry.path().filename().string())), -1);
    }
  }
  Pipe(Pipe&&) = delete;
  ~Pipe() { ::close(ends[0]), ::close(ends[1]); }
  /// All that is in it now.
  [[nodiscard]] std::string read() const {
    std::string text(1 << 20, '\0');
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(::read(ends[0], text.data(), text.size()), 0)));
    return text;
  }
  int ends[2] = {-1, -1};
};

struct LogOnABadDisk : LogTest {
  static constexpr auto kLimit = 400ms;
  LogOnABadDisk() : LogTest({kLimit, kLastLinesLimit}) {
    log_.start("Test");
    log_.write({"first"});
  }
};

TEST_F(LogOnABadDisk, AWriteThatStandsStillCostsItsLineAndTheNextBeginsAnew) {
  const Pipe pipe(file(0));
  const auto start = Clock::now();
  log_.write(Lines(12, std::string(1 << 17, 'l')));
  EXPECT_GE(Clock::now() - start, kLimit);
  EXPECT_LT(Clock::now() - start, 10 * kLimit) << "a limit for what was taken at one go";
  EXPECT_THAT(pipe.read(), EndsWith("lll"));
  log_.write({"fourth", "fifth"});
  EXPECT_THAT(pipe.read(), MatchesRegex("\n[^\n]* - fourth\n[^\n]* - fifth\n"));
}

}  // namespace
}  // namespace zarn::testing
