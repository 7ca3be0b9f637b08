// A disk with room for so many times 4 KiB, from none to enough: what stands on it is whole, and
// everything goes on when there is space again. ZARN_LONG=1 takes every number of them.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <iostream>

#include "os/system_error.h"
#include "sweep/known_outcome.h"
#include "sweep/scenarios.h"

namespace zarn::testing {
namespace {

/// A file system in memory that only this process sees, with this process's temporary folder on it.
struct SmallDisk : ::testing::Test {
  static constexpr long kBlock = 4096, kBlocks = 512;
  SmallDisk() : former(toUtf8(fs::temp_directory_path())) {
    const std::string size = "size=" + std::to_string(kBlocks * kBlock);
    isThere = ::unshare(CLONE_NEWNS) == 0 &&
              ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
              ::mount("none", place.path().c_str(), "tmpfs", 0, size.c_str()) == 0;
    if (isThere) setEnvironment("TMPDIR", place.path());
  }
  ~SmallDisk() override {
    setEnvironment("TMPDIR", former);
    if (isThere) ::umount2(place.path().c_str(), MNT_DETACH);
  }
  /// Leaves room for so many blocks and no more.
  void fill(long blocks) const {
    struct statvfs facts {};
    ::statvfs(place.path().c_str(), &facts);
    const long bytes = (static_cast<long>(facts.f_bfree) - blocks) * kBlock;
    const int file = ::open(filler.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_TRUE(bytes >= 0 && (bytes == 0 || ::posix_fallocate(file, 0, bytes) == 0));
    ::close(file);
  }

  template <typename Scenario>
  void sweep(const std::string& name, long enough) {
    if (!isThere) GTEST_SKIP() << "skipped, no right to mount";
    std::map<std::string, int> outcomes;
    std::string last;
    for (long blocks = 0; blocks <= enough; blocks += std::getenv("ZARN_LONG") != nullptr ? 1 : 4) {
      SCOPED_TRACE(name + ", " + std::to_string(blocks) + " blocks");
      Scenario scenario;
      fill(blocks);
      scenario.act();
      ::unlink(filler.c_str());
      ++outcomes[last = scenario.judge()];
      if (HasFailure()) return;
    }
    std::cout << name << " | space | 0 to " << enough << " blocks";
    for (const auto& [outcome, count] : outcomes) {
      std::cout << " | " << outcome << ": " << count;
      EXPECT_TRUE(isKnown(name + " | space | " + outcome)) << outcome;
    }
    std::cout << std::endl;
    EXPECT_THAT(last, StartsWith("every")) << "so many are enough";
  }

  const std::string former;
  const TempDirectory place;
  const std::string filler = place / "filler";
  bool isThere = false;
};

TEST_F(SmallDisk, UnderTheLog) {
  sweep<LogLife>("log", 16);
}
TEST_F(SmallDisk, UnderTheRecord) {
  sweep<Record>("record", 8);
}
TEST_F(SmallDisk, UnderTheCollection) {
  sweep<Collection>("collection", 48);
}

}  // namespace
}  // namespace zarn::testing
