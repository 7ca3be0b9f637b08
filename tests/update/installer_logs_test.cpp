#include "update/installer_logs.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <set>

#include "support/recording_log.h"
#include "update/temporary_folder.h"

namespace zarn {
namespace {

namespace fs = boost::filesystem;
using Names = std::set<std::string>;

class InstallerLogsTest : public ::testing::Test {
 protected:
  Names collect() {
    collectInstallerLogs();
    Names names;
    for (const auto& entry : fs::directory_iterator(FileUtils::toPath(folder_.installerLog(""))))
      names.insert(FileUtils::toUtf8(entry.path().filename()));
    return names;
  }

  testing::RecordingLog log_;
  testing::TemporaryFolder folder_;
};

TEST_F(InstallerLogsTest, TakesTheInstallersLogsAndKeepsTheOlderOfTwo) {
  const Names wanted = {"Zarn Media Server.log", "Zarn Media Server Setup 1.2.log",
                        "dd_vcredist_amd64_20260101.log", "dd_vcredist.log"};
  for (const std::string& name : wanted) testing::writeFile(folder_.temp / name, name);
  for (const char* name :
       {"zarn media server.txt", "Zarn Media Serve.log", "DD_vcredist_x.log", "dd_vcredis.log",
        "Zarn Media Server2.LOG", "Zarn Media Server.log.bak", "other.log", ".log"}) {
    testing::writeFile(folder_.temp / name, name);
  }
  fs::create_directory(FileUtils::toPath(folder_.temp / "Zarn Media Server Folder.log"));
  EXPECT_EQ(collect(), wanted);
  testing::writeFile(folder_.temp / "dd_vcredist.log", "newer");
  EXPECT_EQ(collect(), wanted);
  EXPECT_EQ(testing::readFile(folder_.installerLog("dd_vcredist.log")), "dd_vcredist.log");
  EXPECT_TRUE(log_.texts().empty());
}

TEST_F(InstallerLogsTest, CopiesNoFileThatHasAnotherName) {
  testing::writeFile(folder_.appData / "secret", "secret");
  fs::create_hard_link(FileUtils::toPath(folder_.appData / "secret"),
                       FileUtils::toPath(folder_.temp / "Zarn Media Server.log"));
#ifndef _WIN32
  fs::create_symlink(folder_.appData / "secret", folder_.temp / "dd_vcredist.log");
#endif
  EXPECT_EQ(collect(), Names{});
  EXPECT_TRUE(log_.contains("Not collecting Zarn Media Server.log, it is not a plain file with one name"));
#ifndef _WIN32
  testing::writeFile(folder_.temp / "dd_vcredist_x64.log", "genuine");
  const fs::path installerLogs = FileUtils::join(FileUtils::logDirectory(), "Installer Logs");
  fs::remove(installerLogs);
  fs::create_directory_symlink(folder_.appData.path(), installerLogs);
  EXPECT_FALSE(collect().contains("dd_vcredist_x64.log")) << "copied through a link";
#endif
}

}  // namespace
}  // namespace zarn
