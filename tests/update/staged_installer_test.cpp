#include "update/staged_installer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <boost/filesystem/operations.hpp>
#include <thread>

#include "update/helper.h"

namespace zarn {
namespace {

using testing::wide;

class StagedInstallerTest : public ::testing::Test {
 protected:
  testing::TemporaryFolder folder_;
  const std::string bundle_ = folder_.appData / "bundle.exe";
  const std::string staged_ = folder_.temp / "ZarnMediaServerUpdate.exe";
};

TEST_F(StagedInstallerTest, StagesUnderAFixedNameInTheTemporaryDirectory) {
  EXPECT_EQ(stagedInstallerPath(), wide(staged_));
}

TEST_F(StagedInstallerTest, DoesNotWriteThroughAPlantedLink) {
  testing::writeFile(bundle_, "bundle");
  testing::writeFile(folder_.appData / "victim", "victim");
  boost::filesystem::create_hard_link(FileUtils::toPath(folder_.appData / "victim"),
                                      FileUtils::toPath(staged_));
  EXPECT_TRUE(copyBundle(wide(bundle_), wide(staged_)));
  EXPECT_EQ(testing::readFile(folder_.appData / "victim"), "victim");
  EXPECT_EQ(testing::readFile(staged_), "bundle");
  EXPECT_TRUE(openStagedCopy(wide(staged_)).isValid());

  boost::filesystem::create_hard_link(FileUtils::toPath(staged_),
                                      FileUtils::toPath(folder_.appData / "second name"));
  EXPECT_FALSE(openStagedCopy(wide(staged_)).isValid());
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(StagedInstallerTest, CopiesUpToTheLimit) {
  constexpr std::int64_t bytes = 5'000'000;
  testing::writeFile(bundle_, std::string(bytes, 'x'));
  EXPECT_TRUE(copyBundle(wide(bundle_), wide(staged_), bytes));
  EXPECT_EQ(FileUtils::fileSize(staged_), static_cast<std::uint64_t>(bytes));
  EXPECT_FALSE(copyBundle(wide(bundle_), wide(staged_), bytes - 1));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_REQUEST_ABORTED));
  EXPECT_FALSE(FileUtils::exists(staged_));
}

TEST_F(StagedInstallerTest, OpensFilesOnDiskOnly) {
  constexpr wchar_t pipeName[] = LR"(\\.\pipe\zarn-staged-installer-test.exe)";
  const FileHandle pipe(CreateNamedPipeW(pipeName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 2, 0, 0, 0, nullptr));
  ASSERT_TRUE(pipe.isValid());
  for (const wchar_t* path : {pipeName, LR"(\\.\NUL)"}) {
    EXPECT_FALSE(openBundle(path).isValid());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_FILE_TYPE));
  }
  EXPECT_FALSE(openBundle(wide(folder_.temp.path())).isValid());
}

// What is read at the first look is what is there at the second, whatever a
// neighbour does to the name meanwhile.
TEST_F(StagedInstallerTest, HoldsTheCopyAgainstASwapper) {
  constexpr int rounds = 2'000;
  testing::writeFile(bundle_, "genuine");
  testing::writeFile(folder_.appData / "intruder", "intruder");
  std::atomic<bool> done{false};
  std::atomic<int> swaps{0};
  std::thread swapper([&] {
    const std::wstring intruder = wide(folder_.appData / "intruder");
    const std::wstring target = wide(staged_);
    while (!done) {
      if (CopyFileW(intruder.c_str(), target.c_str(), FALSE) != 0) ++swaps;
      if (DeleteFileW(target.c_str()) != 0) ++swaps;
      MoveFileExW(target.c_str(), (target + L".away").c_str(), MOVEFILE_REPLACE_EXISTING);
    }
  });
  int held = 0;
  for (int round = 0; round < rounds; ++round) {
    static_cast<void>(copyBundle(wide(bundle_), wide(staged_)));  // the swapper may be first
    const FileHandle copy = openStagedCopy(wide(staged_));
    if (!copy) continue;
    ++held;
    const std::string first = testing::readFile(staged_);
    std::this_thread::yield();
    const std::string second = testing::readFile(staged_);
    if (second == first && !first.empty()) continue;
    ADD_FAILURE() << "round " << round << ": " << first << ", then " << second;
    break;
  }
  done = true;
  swapper.join();
  EXPECT_GT(held, 0);
  EXPECT_GT(swaps.load(), 0);
}

}  // namespace
}  // namespace zarn
