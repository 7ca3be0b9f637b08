// What the rights do is Windows' alone: Wine maps them to those of the Unix file.
#include "update/record_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "os/handles_win.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "update/helper.h"

namespace zarn {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using testing::wide;

using Descriptor = std::unique_ptr<void, decltype(&LocalFree)>;
Descriptor descriptor(const std::string& text) {
  void* value = nullptr;
  ConvertStringSecurityDescriptorToSecurityDescriptorW(wide(text).c_str(), SDDL_REVISION_1, &value, nullptr);
  return {value, &LocalFree};
}

class RecordFolderTest : public ::testing::Test {
 protected:
  std::ptrdiff_t asides() const {
    using Entries = boost::filesystem::directory_iterator;
    return std::count_if(Entries(FileUtils::toPath(parent_.path())), Entries(), [](const auto& entry) {
      return FileUtils::toUtf8(entry.path().filename()).starts_with("Record untrusted ");
    });
  }
  static FileHandle open(const std::string& path, DWORD share) {
    return FileHandle(
        CreateFileW(wide(path).c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
  }
  std::string file(const char* name) const { return FileUtils::join(path_, name); }

  testing::RecordingLog log_;
  testing::TempDirectory parent_;
  const std::string path_ = parent_ / "Record";
};

TEST_F(RecordFolderTest, TrustsWhatOnlyTheSystemAndAdministratorsMayWrite) {
  const std::string rights = "D:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";
  const std::string installer = "O:S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
  for (const std::string& good :
       {"O:SY" + rights, "O:BA" + rights, installer + rights,
        "O:SY" + rights + "(D;;FA;;;WD)(A;OICIIO;FA;;;CO)", std::string("O:SYD:")}) {
    EXPECT_TRUE(isTrustedDescriptor(descriptor(good).get())) << good;
  }
  for (const std::string& bad :
       {"O:WD" + rights, "O:S-1-5-21-1-2-3-1001" + rights, "O:BU" + rights, rights,
        "O:SY" + rights + "(A;;0x2;;;BU)", "O:SY" + rights + "(A;;GW;;;AU)", "O:SY" + rights + "(A;;WD;;;BU)",
        "O:SY" + rights + "(A;OICIIO;FA;;;S-1-5-21-1-2-3-1001)", std::string("O:SY")}) {
    EXPECT_FALSE(isTrustedDescriptor(descriptor(bad).get())) << bad;
  }
}

TEST_F(RecordFolderTest, IsMadeAndHeldAndKeepsRefusalsApart) {
  InstallRecord record;
  record.path = "C:\\refused.exe";
  {
    RecordFolder folder(path_);
    EXPECT_TRUE(folder.prepare());
    EXPECT_FALSE(RemoveDirectoryW(wide(path_).c_str())) << "held";
    EXPECT_TRUE(folder.append(record));
    record.path = "C:\\ran.exe";
    record.exitCode = 1603;
    EXPECT_TRUE(folder.append(record));
  }
  EXPECT_TRUE(checkRecordFolder(path_));
  EXPECT_THAT(testing::readFile(file("Refused Requests.jsonl")), HasSubstr("refused.exe"));
  EXPECT_THAT(testing::readFile(file("Update History.jsonl")), HasSubstr("ran.exe"));
  EXPECT_TRUE(RecordFolder(path_).append(record)) << "what is there already is taken up again";
  EXPECT_EQ(asides(), 0);
}

TEST_F(RecordFolderTest, AReaderWhoLocksTheFileHidesNoInstallation) {
  RecordFolder folder(path_);
  InstallRecord record;
  record.exitCode = 0;
  record.time = "2026-11-21T10:15:00.007Z";
  ASSERT_TRUE(folder.append(record));
  const FileHandle reader = open(file("Update History.jsonl"), 0);
  ASSERT_TRUE(reader);
  EXPECT_TRUE(folder.append(record));
  EXPECT_EQ(testing::readFile(file("Update History.2026-11-21T10.15.00.007Z.jsonl")), recordLine(record));
}

TEST_F(RecordFolderTest, WhatOthersMayHavePutThereIsMovedAsideAndKept) {
  const auto plantFolder = [this] {
    CreateDirectoryW(wide(path_).c_str(), nullptr);
    testing::writeFile(file("Update History.jsonl"), "forged\n");
    SetFileSecurityW(wide(path_).c_str(), DACL_SECURITY_INFORMATION, descriptor("D:(A;OICI;FA;;;WD)").get());
  };
  std::ptrdiff_t moved = 0;
  for (const auto& plant :
       {std::function<void()>(plantFolder), {[this] { testing::writeFile(path_, "forged\n"); }}}) {
    plant();
    EXPECT_EQ(checkRecordFolder(path_).error().code(), kFolderNotTrusted);
    EXPECT_TRUE(RecordFolder(path_).append({}));
    EXPECT_TRUE(checkRecordFolder(path_));
    EXPECT_FALSE(FileUtils::exists(file("Update History.jsonl")));
    EXPECT_EQ(asides(), ++moved);
    boost::filesystem::remove_all(FileUtils::toPath(path_));
  }
  EXPECT_THAT(log_.texts(), Contains(HasSubstr("was not the service's own and is now")));
}

TEST_F(RecordFolderTest, SaysOnceThatThereIsNoFolderAndTriesAgain) {
  testing::writeFile(path_, "in the way");
  RecordFolder folder(path_);
  InstallRecord record;
  record.time = "2026-11-21T10:15:00.007Z";
  {
    const FileHandle holder = open(path_, FILE_SHARE_READ);
    EXPECT_FALSE(folder.prepare());
    EXPECT_FALSE(folder.append(record));
  }
  for (const auto level : {LogLevel::Error, LogLevel::Warn})
    EXPECT_EQ(std::ranges::count(log_.lines(), level, &testing::LoggedLine::level), 1);
  EXPECT_TRUE(folder.append(record));
}

}  // namespace
}  // namespace zarn
