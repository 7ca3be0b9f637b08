#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "update/update_history.h"

namespace zarn {
namespace {

/// Files of this process cannot grow beyond `bytes`: writes take what fits, then fail.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit now{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &now);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    static_cast<void>(std::signal(SIGXFSZ, handler_));
  }

 private:
  rlimit before_{};
  void (*handler_)(int) = std::signal(SIGXFSZ, SIG_IGN);
};

TEST(UpdateHistoryOnAFullDisk, TakesAWholeLineOrNone) {
  const testing::RecordingLog log;
  const testing::TempDirectory folder;
  ASSERT_TRUE(appendToHistory(folder.path(), "first\n"));
  {
    const FileSizeLimit limit(15);
    EXPECT_FALSE(appendToHistory(folder.path(), "the second line\n"));
  }
  EXPECT_EQ(testing::readFile(folder / "Update History.jsonl"), "first\n");
  EXPECT_TRUE(appendToHistory(folder.path(), "third\n"));
  EXPECT_EQ(testing::readFile(folder / "Update History.jsonl"), "first\nthird\n");
}

}  // namespace
}  // namespace zarn
