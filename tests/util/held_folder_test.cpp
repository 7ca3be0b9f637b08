#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "support/temp_directory.h"
#include "util/file_utils.h"

namespace zarn::testing {
namespace {

namespace fs = boost::filesystem;
using namespace FileUtils;

TEST(HeldFolder, CannotBeReplacedNorMadeALinkWhileItIsHeld) {
  const TempDirectory dir;
  const std::string logs = dir / "Logs";
  const fs::path path = FileUtils::toPath(logs);
  const fs::path elsewhere = FileUtils::toPath(dir / "elsewhere");
  boost::system::error_code error;
  fs::create_directory(path);
  for (const HoldFor use : {HoldFor::Reading, HoldFor::Changes}) {
    const auto held = holdFolder(logs, Links::Refuse, use);
    ASSERT_EQ(held.error, 0U);
    EXPECT_TRUE(FileUtils::isDirectory(held.path));
    EXPECT_EQ(fs::is_empty(path), use == HoldFor::Reading) << "only an empty folder can become a link";
    EXPECT_FALSE(fs::remove(path, error));
    fs::rename(path, elsewhere, error);
    EXPECT_TRUE(error);
  }
  EXPECT_TRUE(fs::is_empty(path));
  fs::rename(path, elsewhere, error);
  EXPECT_FALSE(error);
}

TEST(HeldFolder, IsAFolderOnADisk) {
  const TempDirectory dir;
  writeFile(dir / "file", "text");
  for (const std::string& path : {dir / "file", dir / "missing", std::string(R"(\\.\NUL)")}) {
    const auto held = holdFolder(path, Links::Follow, HoldFor::Changes);
    EXPECT_NE(held.error, 0U) << path;
    EXPECT_EQ(held.handle, nullptr);
  }
}

}  // namespace
}  // namespace zarn::testing
