#include "update/bundle.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "update/helper.h"

namespace zarn {
namespace {

using testing::wide;

struct BundleTest : ::testing::Test {
  testing::TempDirectory folder_;
  const std::string bundle_ = folder_ / "bundle.exe";
  const std::string staged_ = folder_ / "staged.exe";
};

TEST_F(BundleTest, PutsWhatIsInItsWayAsideAndWritesThroughNoLink) {
  const std::string victim = folder_ / "victim";
  testing::writeFile(bundle_, "bundle");
  testing::writeFile(victim, "victim");
  boost::filesystem::create_hard_link(FileUtils::toPath(victim), FileUtils::toPath(staged_));
  EXPECT_TRUE(copyBundle(wide(bundle_), wide(staged_)));
  EXPECT_EQ(testing::readFile(victim) + testing::readFile(staged_), "victimbundle");
  EXPECT_TRUE(openStagedCopy(wide(staged_)));
  boost::filesystem::create_hard_link(FileUtils::toPath(staged_), FileUtils::toPath(folder_ / "second"));
  EXPECT_EQ(openStagedCopy(wide(staged_)).error(), SystemError::accessDenied());

  FileUtils::deleteFile(staged_);
  ASSERT_TRUE(FileUtils::createDirectories(FileUtils::join(staged_, "Logs")));
  testing::writeFile(FileUtils::join(staged_, R"(Logs\a.log)"), "log");
  EXPECT_TRUE(copyBundle(wide(bundle_), wide(staged_)));
  EXPECT_EQ(testing::readFile(staged_), "bundle");
}

TEST_F(BundleTest, CopiesUpToTheLimit) {
  constexpr std::int64_t bytes = 5'000'000;
  testing::writeFile(bundle_, std::string(bytes, 'x'));
  EXPECT_TRUE(copyBundle(wide(bundle_), wide(staged_), bytes));
  EXPECT_EQ(FileUtils::fileSize(staged_), static_cast<std::uint64_t>(bytes));
  EXPECT_EQ(copyBundle(wide(bundle_), wide(staged_), bytes - 1).error().code(), ERROR_REQUEST_ABORTED);
  EXPECT_FALSE(FileUtils::exists(staged_));
}

TEST_F(BundleTest, OpensFilesOnDiskOnly) {
  constexpr wchar_t pipeName[] = LR"(\\.\pipe\zarn-staged-installer-test.exe)";
  const FileHandle pipe(CreateNamedPipeW(pipeName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 2, 0, 0, 0, nullptr));
  ASSERT_TRUE(pipe.isValid());
  for (const wchar_t* path : {pipeName, LR"(\\.\NUL)"})
    EXPECT_EQ(openBundle(path).error().code(), ERROR_BAD_PATHNAME) << "refused by its name";
  EXPECT_FALSE(openBundle(wide(folder_.path())));
}

}  // namespace
}  // namespace zarn
