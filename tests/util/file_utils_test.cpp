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

TEST(FileUtils, SafeOpenModes) {
  const RecordingLog log;
  const TempDirectory dir;
  const std::string path = dir / "file";
  EXPECT_EQ(FileUtils::safeOpen(path, "r+", true), nullptr);  // needs an existing file
  EXPECT_THAT(log.texts(), ElementsAre(StartsWith("safe_fopen: CreateFileW for '" + path + "' failed: 2")));
  for (const auto& [mode, text, content] : {std::tuple{"ab", "one", "one"},
                                            {"ab", "two", "onetwo"},
                                            {"r+b", "ONE", "ONEtwo"},
                                            {"wb", "new", "new"}}) {
    EXPECT_GE(std::fputs(text, FileUtils::safeOpen(path, mode, true).get()), 0);
    EXPECT_EQ(readFile(path), content);
  }
  EXPECT_NE(FileUtils::safeOpen(path, "", false), nullptr);  // an empty mode reads
}

TEST(FileUtils, SafeOpenRefusesPlantedLinks) {
  const RecordingLog log;
  const TempDirectory dir;
  writeFile(dir / "victim", "precious");
  fs::create_hard_link(FileUtils::toPath(dir / "victim"), FileUtils::toPath(dir / "hard"));
#ifndef _WIN32  // Wine pretends to make symbolic links
  fs::create_symlink(FileUtils::toPath(dir / "victim"), FileUtils::toPath(dir / "soft"));
  EXPECT_EQ(FileUtils::safeOpen(dir / "soft", "w", true, FileUtils::Links::Refuse), nullptr);
#endif
  EXPECT_EQ(FileUtils::safeOpen(dir / "hard", "w", true, FileUtils::Links::Refuse), nullptr);
  EXPECT_EQ(readFile(dir / "victim"), "precious");
  EXPECT_NE(FileUtils::safeOpen(dir / "fresh", "w", true, FileUtils::Links::Refuse), nullptr);
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
  for (const std::string& refused : {std::string(R"(\\nowhere\share)"), temp, std::string("C:")}) {
    preferredPath = refused;
    for (const char* said : {refused.c_str(), ""}) {
      EXPECT_EQ(FileUtils::applicationDataDirectory(), dir / "Zarn Media Server");
      EXPECT_THAT(FileUtils::takeRefusalOfAppDataPath(), ::testing::HasSubstr(said));
    }
    EXPECT_EQ(FileUtils::takeRefusalOfAppDataPath(), "");
  }
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
