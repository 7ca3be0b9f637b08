// What the rights do is Windows' alone: Wine maps them to those of the Unix file.
#include "update/record_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "update/helper.h"
#include "util/windows_handles.h"

namespace zarn {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using testing::wide;

struct Descriptor {
  explicit Descriptor(const std::string& text) {
    ConvertStringSecurityDescriptorToSecurityDescriptorW(wide(text).c_str(), SDDL_REVISION_1, &value,
                                                         nullptr);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { LocalFree(value); }
  PSECURITY_DESCRIPTOR value = nullptr;
};

class RecordFolderTest : public ::testing::Test {
 protected:
  std::vector<std::string> asides() const {
    std::vector<std::string> names;
    for (const auto& entry : boost::filesystem::directory_iterator(FileUtils::toPath(parent_.path()))) {
      const std::string name = FileUtils::toUtf8(entry.path().filename());
      if (name.starts_with("Record untrusted ")) names.push_back(name);
    }
    return names;
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
    EXPECT_TRUE(isTrustedDescriptor(Descriptor(good).value)) << good;
  }
  for (const std::string& bad :
       {"O:WD" + rights, "O:S-1-5-21-1-2-3-1001" + rights, "O:BU" + rights, rights,
        "O:SY" + rights + "(A;;0x2;;;BU)", "O:SY" + rights + "(A;;GW;;;AU)", "O:SY" + rights + "(A;;WD;;;BU)",
        "O:SY" + rights + "(A;OICIIO;FA;;;S-1-5-21-1-2-3-1001)", std::string("O:SY")}) {
    EXPECT_FALSE(isTrustedDescriptor(Descriptor(bad).value)) << bad;
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
  EXPECT_EQ(recordFolderProblem(path_), 0U);
  EXPECT_THAT(testing::readFile(file("Refused Requests.jsonl")), HasSubstr("refused.exe"));
  EXPECT_THAT(testing::readFile(file("Update History.jsonl")), HasSubstr("ran.exe"));
  EXPECT_TRUE(RecordFolder(path_).append(record)) << "what is there already is taken up again";
  EXPECT_TRUE(asides().empty());
}

TEST_F(RecordFolderTest, AReaderWhoLocksTheFileHidesNoInstallation) {
  RecordFolder folder(path_);
  InstallRecord record;
  record.exitCode = 0;
  record.began = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'795'256'100'007));
  ASSERT_TRUE(folder.append(record));
  const FileHandle reader(CreateFileW(wide(file("Update History.jsonl")).c_str(), GENERIC_READ, 0, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(reader);
  EXPECT_TRUE(folder.append(record));
  EXPECT_EQ(testing::readFile(file("Update History.2026-11-21T10.15.00.007Z.jsonl")), historyLine(record));
}

TEST_F(RecordFolderTest, WhatOthersMayHavePutThereIsMovedAsideAndKept) {
  const auto plantFolder = [this] {
    CreateDirectoryW(wide(path_).c_str(), nullptr);
    testing::writeFile(file("Update History.jsonl"), "forged\n");
    Descriptor everybody("D:(A;OICI;FA;;;WD)");
    PACL entries = nullptr;
    BOOL ignored = FALSE;
    GetSecurityDescriptorDacl(everybody.value, &ignored, &entries, &ignored);
    SetNamedSecurityInfoW(wide(path_).data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                          entries, nullptr);
  };
  const auto plantFile = [this] { testing::writeFile(path_, "forged\n"); };
  std::size_t moved = 0;
  for (const auto& plant : {std::function<void()>(plantFolder), std::function<void()>(plantFile)}) {
    plant();
    EXPECT_EQ(recordFolderProblem(path_), kFolderNotTrusted);
    EXPECT_TRUE(RecordFolder(path_).append({}));
    EXPECT_EQ(recordFolderProblem(path_), 0U);
    EXPECT_FALSE(FileUtils::exists(file("Update History.jsonl")));
    EXPECT_EQ(asides().size(), ++moved);
    boost::filesystem::remove_all(FileUtils::toPath(path_));
  }
  EXPECT_THAT(log_.texts(), Contains(HasSubstr("was not the service's own and is now")));
}

TEST_F(RecordFolderTest, SaysOnceThatThereIsNoFolderAndTriesAgain) {
  testing::writeFile(path_, "in the way");
  RecordFolder folder(path_);
  InstallRecord record;
  record.began = std::chrono::system_clock::now();
  {
    const FileHandle holder(
        CreateFileW(wide(path_).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_FALSE(folder.prepare());
    EXPECT_FALSE(folder.append(record));
  }
  const auto lines = log_.lines();
  EXPECT_EQ(std::ranges::count(lines, LogLevel::Error, &testing::LoggedLine::level), 1);
  EXPECT_EQ(std::ranges::count(lines, LogLevel::Warn, &testing::LoggedLine::level), 1);
  EXPECT_TRUE(folder.append(record));
}

}  // namespace
}  // namespace zarn
