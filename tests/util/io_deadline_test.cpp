// A FIFO that nobody opens stands for everything that blocks an open for ever.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/temp_directory.h"
#include "util/io_deadline.h"

namespace zarn {

using namespace std::chrono_literals;

TEST(IoDeadline, EndsWhatBlocksAndNothingAfterItIsDisarmed) {
  const testing::TempDirectory dir;
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const auto start = std::chrono::steady_clock::now();
  {
    const IoDeadline deadline(200ms);
    for (int again = 0; again < 2; ++again)
      EXPECT_TRUE(::open(fifo.c_str(), O_RDONLY | O_CLOEXEC) == -1 && errno == EINTR);
  }
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(took >= 200ms && took < 5s);
  EXPECT_EQ(::usleep(300'000), 0) << "nothing interrupts the thread any more";
}

TEST(IoDeadline, ProgressPutsItOff) {
  IoDeadline deadline(200ms);
  for (int step = 0; step < 6; ++step, deadline.renew()) EXPECT_EQ(::usleep(100'000), 0);
}

}  // namespace zarn
