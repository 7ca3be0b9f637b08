#include "update/installer_logs.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <set>

#include "support/recording_log.h"
#include "update/temporary_folder.h"
#ifdef _WIN32
#include "util/windows_handles.h"
#endif

namespace zarn {
namespace {

namespace fs = boost::filesystem;

class InstallerLogsTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::set<std::string> collected() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(FileUtils::toPath(folder_.installerLog("")))) {
      names.insert(FileUtils::toUtf8(entry.path().filename()));
    }
    return names;
  }

  testing::RecordingLog log_;
  testing::TemporaryFolder folder_;
};

TEST_F(InstallerLogsTest, TakesTheInstallersLogsAndNothingElse) {
  const std::set<std::string> wanted = {"Zarn Media Server.log", "Zarn Media Server Setup 1.2.log",
                                        "dd_vcredist_amd64_20260101.log", "dd_vcredist.log"};
  for (const std::string& name : wanted) testing::writeFile(folder_.temp / name, name);
  for (const char* name :
       {"zarn media server.txt", "Zarn Media Serve.log", "DD_vcredist_x.log", "dd_vcredis.log",
        "Zarn Media Server2.LOG", "Zarn Media Server.log.bak", "other.log", ".log"}) {
    testing::writeFile(folder_.temp / name, name);
  }
  fs::create_directory(FileUtils::toPath(folder_.temp / "Zarn Media Server Folder.log"));
  collectInstallerLogs();
  EXPECT_EQ(collected(), wanted);
  EXPECT_EQ(testing::readFile(folder_.installerLog("dd_vcredist.log")), "dd_vcredist.log");
  EXPECT_TRUE(log_.texts().empty());
}

TEST_F(InstallerLogsTest, KeepsTheOlderOfTwoLogsOfOneName) {
  testing::writeFile(folder_.temp / "dd_vcredist.log", "older");
  collectInstallerLogs();
  testing::writeFile(folder_.temp / "dd_vcredist.log", "newer");
  collectInstallerLogs();
  EXPECT_EQ(testing::readFile(folder_.installerLog("dd_vcredist.log")), "older");
  EXPECT_TRUE(log_.texts().empty());
}

TEST_F(InstallerLogsTest, CopiesNoFileThatHasAnotherName) {
  testing::writeFile(folder_.appData / "secret", "secret");
  fs::create_hard_link(FileUtils::toPath(folder_.appData / "secret"),
                       FileUtils::toPath(folder_.temp / "Zarn Media Server.log"));
#ifndef _WIN32
  fs::create_symlink(folder_.appData / "secret", folder_.temp / "dd_vcredist.log");
#endif
  collectInstallerLogs();
  EXPECT_TRUE(collected().empty());
  EXPECT_EQ(log_.texts(), std::vector<std::string>{
                              "Not collecting Zarn Media Server.log, it is not a plain file with one name"});
}

TEST_F(InstallerLogsTest, SaysWhyItCannotStart) {
  testing::writeFile(folder_.appData / "file", "");
  FileUtils::setApplicationDataOverride(folder_.appData / "file");
  collectInstallerLogs();
  const auto lines = log_.lines();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].level, LogLevel::Error);
  EXPECT_TRUE(lines[0].text.starts_with("Failed creating \"Installer Logs\" directory, create_directories: "))
      << lines[0].text;
}

#ifdef _WIN32
TEST_F(InstallerLogsTest, GoesOnPastALogThatCannotBeRead) {
  testing::writeFile(folder_.temp / "Zarn Media Server.log", "");
  testing::writeFile(folder_.temp / "dd_vcredist.log", "");
  const FileHandle exclusive(CreateFileW(FileUtils::toPath(folder_.temp / "Zarn Media Server.log").c_str(),
                                         GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  collectInstallerLogs();
  EXPECT_EQ(collected(), std::set<std::string>{"dd_vcredist.log"});
  EXPECT_EQ(log_.lines(), (std::vector<testing::LoggedLine>{
                              {LogLevel::Debug, "Failed copying file Zarn Media Server.log, copy_file: 32, " +
                                                    systemErrorPhrase(32)}}));
}
#else
TEST_F(InstallerLogsTest, SaysThatThereIsNoTemporaryDirectory) {
  testing::writeFile(folder_.temp / "file", "");
  const testing::ScopedVariable nowhere("TMPDIR", folder_.temp / "file");
  collectInstallerLogs();
  EXPECT_EQ(log_.lines(), (std::vector<testing::LoggedLine>{
                              {LogLevel::Error, "Failed getting temp_directory_path: 20, Not a directory"}}));
}
#endif

}  // namespace
}  // namespace zarn
