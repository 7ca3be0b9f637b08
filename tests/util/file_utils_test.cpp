#include "util/file_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/environment.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"

namespace zarn::testing {
namespace {

namespace fs = boost::filesystem;
using ::testing::ElementsAre;
using ::testing::StartsWith;

TEST(FileUtils, LongPathPrefix) {
  const std::string plain = "C:\\" + std::string(247, 'a');
  EXPECT_EQ(FileUtils::withLongPathPrefix(plain), plain);
  EXPECT_EQ(FileUtils::withLongPathPrefix(plain + "a"), R"(\\?\)" + plain + "a");
}

TEST(FileUtils, OperationsReportFailures) {
  const TempDirectory dir;
  const std::string missing = dir / "missing";
  writeFile(dir / "plain", "x");
  EXPECT_FALSE(FileUtils::copyFile(missing, dir / "copy"));
  EXPECT_FALSE(FileUtils::move(missing, dir / "moved"));
  EXPECT_FALSE(FileUtils::copyDirectoryRecursively(missing, dir / "copy"));
  EXPECT_FALSE(FileUtils::createDirectories(FileUtils::join(dir / "plain", "below")));
  EXPECT_FALSE(FileUtils::deleteFile(dir.path()));  // it holds something
  EXPECT_EQ(static_cast<std::int64_t>(FileUtils::fileSize(missing)), -1);
}

TEST(FileUtils, SafeOpenSaysWhatFailsAndRefusesPlantedLinks) {
  const RecordingLog log;
  const TempDirectory dir;
  const auto opens = [&](const char* name, const char* mode, FileUtils::Links links) {
    return FileUtils::safeOpen(dir / name, mode, true, links) != nullptr;
  };
  using enum FileUtils::Links;
  EXPECT_FALSE(opens("file", "r+", Follow));  // needs an existing file
  EXPECT_THAT(log.texts(),
              ElementsAre(StartsWith("safe_fopen: CreateFileW for '" + (dir / "file") + "' failed: 2")));
  EXPECT_TRUE(opens("file", "wb", Refuse));
  EXPECT_TRUE(opens("file", "", Follow));  // an empty mode reads
  writeFile(dir / "victim", "precious");
  fs::create_hard_link(FileUtils::toPath(dir / "victim"), FileUtils::toPath(dir / "hard"));
#ifndef _WIN32  // Wine pretends to make symbolic links
  fs::create_symlink(FileUtils::toPath(dir / "victim"), FileUtils::toPath(dir / "soft"));
  EXPECT_FALSE(opens("soft", "w", Refuse));
#endif
  EXPECT_FALSE(opens("hard", "w", Refuse));
  EXPECT_EQ(readFile(dir / "victim"), "precious");
}

std::string preferredPath;

TEST(FileUtils, ApplicationDataDirectoryPrecedence) {
  const TempDirectory dir;
  FileUtils::setLocalAppDataPathReader([] { return preferredPath; });
  preferredPath = "";
  const std::string home = FileUtils::applicationDataDirectory(false);
  EXPECT_EQ(FileUtils::applicationDataDirectory(), FileUtils::join(home, "Zarn Media Server"));

  preferredPath = dir.path();
  EXPECT_EQ(FileUtils::applicationDataDirectory(), dir / "Zarn Media Server");
  EXPECT_EQ(FileUtils::applicationDataDirectory(true, false), FileUtils::join(home, "Zarn Media Server"));
  EXPECT_TRUE(FileUtils::isDirectory(FileUtils::databasesDirectory()));

#ifdef _WIN32
  // What is refused changes nothing, not even when it is what was good before.
  const std::string temp = FileUtils::toUtf8(fs::temp_directory_path());
  for (const auto& [refused, because] : {std::pair{std::string(R"(\\nowhere\share)"), "it is a share"},
                                         {R"(\\.\pipe\x)", "it is a device"},
                                         {temp, "it is a place of the service's own"},
                                         {"C:", "it is no full path"}}) {
    preferredPath = refused;
    EXPECT_EQ(FileUtils::applicationDataDirectory(), dir / "Zarn Media Server");
    EXPECT_EQ(FileUtils::takeRefusalOfAppDataPath(),
              "The application data path " + refused + " is not used: " + because + ".");
    EXPECT_EQ(FileUtils::applicationDataDirectory(), dir / "Zarn Media Server");
    EXPECT_EQ(FileUtils::takeRefusalOfAppDataPath(), "");
  }
  // Behind the prefix that long paths get, the system resolves nothing.
  preferredPath = dir.path();
  for (int i = 0; i < 50; ++i) preferredPath += "/x/..";
  EXPECT_TRUE(FileUtils::makeLogDirectory());
  EXPECT_EQ(FileUtils::logDirectory(), dir / R"(Zarn Media Server\Logs)");
  preferredPath = dir.path();
  setEnvironment("TMP", dir.path());
  EXPECT_EQ(FileUtils::applicationDataDirectory(false), home);
  setEnvironment("TMP", temp);
  preferredPath = dir.path();
#endif
  FileUtils::setApplicationDataOverride(dir / "override");
  EXPECT_EQ(FileUtils::logDirectory(), FileUtils::join(dir / "override", "Logs"));
  EXPECT_EQ(FileUtils::applicationDataDirectory(false), dir.path());  // the override is a product directory
  FileUtils::setApplicationDataOverride("");
  FileUtils::setLocalAppDataPathReader(nullptr);
}

}  // namespace
}  // namespace zarn::testing
