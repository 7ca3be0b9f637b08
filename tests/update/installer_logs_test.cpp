#include "update/installer_logs.h"

#include "update/temporary_folder.h"

namespace zarn::testing {
namespace {

using Names = std::set<std::string>;

struct InstallerLogsTest : ::testing::Test {
  Names collect() const {
    collectInstallerLogs();
    Names names;
    for (const auto& entry : fs::directory_iterator(toPath(folder.installerLog(""))))
      names.insert(toUtf8(entry.path().filename()));
    return names;
  }

  RecordingLog log;
  TemporaryFolder folder;
};

TEST_F(InstallerLogsTest, TakesTheInstallersLogsAndKeepsTheOlderOfTwo) {
  const Names wanted = {"Zarn Media Server.log", "Zarn Media Server Setup 1.2.log",
                        "dd_vcredist_amd64_20260101.log", "dd_vcredist.log"};
  Names all = {"zarn media server.txt",  "Zarn Media Serve.log",      "DD_vcredist_x.log", "dd_vcredis.log",
               "Zarn Media Server2.LOG", "Zarn Media Server.log.bak", "other.log",         ".log"};
  all.insert(wanted.begin(), wanted.end());
  for (const std::string& name : all) writeFile(folder.temp / name, name);
  fs::create_directory(toPath(folder.temp / "Zarn Media Server Folder.log"));
  EXPECT_EQ(collect(), wanted);
  writeFile(folder.temp / "dd_vcredist.log", "newer");
  EXPECT_EQ(collect(), wanted);
  EXPECT_EQ(readFile(folder.installerLog("dd_vcredist.log")), "dd_vcredist.log");
  EXPECT_TRUE(log.texts().empty());
}

TEST_F(InstallerLogsTest, CopiesNoFileThatHasAnotherName) {
  writeFile(folder.appData / "secret", "secret");
  fs::create_hard_link(toPath(folder.appData / "secret"), toPath(folder.temp / "Zarn Media Server.log"));
#ifndef _WIN32
  fs::create_symlink(folder.appData / "secret", folder.temp / "dd_vcredist.log");
#endif
  EXPECT_EQ(collect(), Names{});
  EXPECT_TRUE(log.contains("Not collecting Zarn Media Server.log, it is not a plain file with one name"));
#ifndef _WIN32
  writeFile(folder.temp / "dd_vcredist_x64.log", "genuine");
  fs::remove(folder.installerLog(""));
  fs::create_directory_symlink(folder.appData.path(),
                               FileUtils::join(FileUtils::logDirectory(), "Installer Logs"));
  EXPECT_FALSE(collect().contains("dd_vcredist_x64.log")) << "copied through a link";
#endif
}

}  // namespace
}  // namespace zarn::testing
