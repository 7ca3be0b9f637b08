// What the rights do is Windows' alone: Wine maps them to those of the Unix file.
#include "update/record_folder.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <sddl.h>

#include "os/handles_win.h"
#include "support/recording_log.h"
#include "support/temp_directory.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

LocalMemory descriptor(const std::string& text) {
  LocalMemory value;
  const std::wstring wide = StringUtils::utf8to16(text);
  ConvertStringSecurityDescriptorToSecurityDescriptorW(wide.c_str(), SDDL_REVISION_1, value.receive(),
                                                       nullptr);
  return value;
}

struct RecordFolderTest : ::testing::Test {
  RecordFolderTest() { record.time = "2026-11-21T10:15:00.007Z"; }

  std::ptrdiff_t asides() const {
    using Entries = boost::filesystem::directory_iterator;
    return std::count_if(Entries(FileUtils::toPath(parent.path())), Entries(), [](const auto& entry) {
      return FileUtils::toUtf8(entry.path().filename()).starts_with("Record untrusted ");
    });
  }
  static FileHandle open(const std::string& path, DWORD share) {
    return FileHandle(CreateFileW(FileUtils::toPath(path).c_str(), GENERIC_READ, share, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
  }

  testing::RecordingLog log;
  testing::TempDirectory parent;
  const std::string path = parent / "Record", history = FileUtils::join(path, "Update History.jsonl");
  const boost::filesystem::path wide = FileUtils::toPath(path);
  InstallRecord record;
};

TEST_F(RecordFolderTest, TrustsWhatOnlyTheSystemAndAdministratorsMayWrite) {
  const std::string rights = "D:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";
  const std::string installer = "O:S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
  const std::pair<bool, std::vector<std::string>> judged[] = {
      {true,
       {"O:SY" + rights, "O:BA" + rights, installer + rights,
        "O:SYD:", "O:SY" + rights + "(D;;FA;;;WD)(A;OICIIO;FA;;;CO)"}},
      {false,
       {"O:WD" + rights, "O:S-1-5-21-1-2-3-1001" + rights, "O:BU" + rights, rights, "O:SY",
        "O:SY" + rights + "(A;;0x2;;;BU)", "O:SY" + rights + "(A;;GW;;;AU)", "O:SY" + rights + "(A;;WD;;;BU)",
        "O:SY" + rights + "(A;OICIIO;FA;;;S-1-5-21-1-2-3-1001)"}}};
  for (const auto& [trusted, texts] : judged)
    for (const auto& text : texts) EXPECT_EQ(isTrustedDescriptor(descriptor(text).get()), trusted) << text;
}

TEST_F(RecordFolderTest, IsMadeAndHeldKeepsRefusalsApartAndLosesNoneToAReader) {
  {
    RecordFolder folder(path);
    EXPECT_TRUE(folder.prepare());
    EXPECT_FALSE(RemoveDirectoryW(wide.c_str())) << "held";
    EXPECT_TRUE(folder.append(record));
    EXPECT_EQ(testing::readFile(FileUtils::join(path, "Refused Requests.jsonl")), recordLine(record));
    record.exitCode = 1603;
    EXPECT_TRUE(folder.append(record));
    const FileHandle reader = open(history, 0);
    EXPECT_TRUE(folder.append(record));
  }
  EXPECT_TRUE(checkRecordFolder(path));
  for (const char* name : {"Update History.jsonl", "Update History.2026-11-21T10.15.00.007Z.jsonl"})
    EXPECT_EQ(testing::readFile(FileUtils::join(path, name)), recordLine(record)) << name;
  EXPECT_TRUE(RecordFolder(path).append(record)) << "what is there already is taken up again";
  EXPECT_EQ(asides(), 0);
}

TEST_F(RecordFolderTest, WhatOthersMayHavePutThereIsMovedAsideAndKept) {
  for (const bool isFile : {false, true}) {
    if (!isFile) CreateDirectoryW(wide.c_str(), nullptr);
    testing::writeFile(isFile ? path : history, "forged\n");
    if (!isFile)
      SetFileSecurityW(wide.c_str(), DACL_SECURITY_INFORMATION, descriptor("D:(A;OICI;FA;;;WD)").get());
    EXPECT_EQ(checkRecordFolder(path).error().code(), kFolderNotTrusted);
    EXPECT_TRUE(RecordFolder(path).append(record));
    EXPECT_TRUE(checkRecordFolder(path));
    EXPECT_FALSE(FileUtils::exists(history));
    EXPECT_EQ(asides(), isFile ? 2 : 1);
    boost::filesystem::remove_all(wide);
  }
  EXPECT_THAT(log.texts(), Contains(HasSubstr("was not the service's own and is now")));
}

TEST_F(RecordFolderTest, ShowsAnInstallAsLongAsItIsWorkedOnWhateverStandsInItsPlace) {
  const std::string place = FileUtils::join(path, "Installing.json");
  RecordFolder folder(path);
  EXPECT_FALSE(folder.announce(record)) << "not held yet";
  ASSERT_TRUE(RecordFolder(path).prepare());
  testing::writeFile(place, "left by a power cut");
  ASSERT_TRUE(folder.prepare());
  EXPECT_FALSE(FileUtils::exists(place));
  FileUtils::createDirectories(FileUtils::join(place, "in the way"));
  record.path = "C:\\a\x1b.exe" + std::string(5000, 'x');
  auto announced = folder.announce(record);
  // Who shares less than reading, writing and deleting does not get at it.
  const FileHandle reader = open(place, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  std::string text(9000, '\0');
  DWORD bytes = 0;
  EXPECT_NE(ReadFile(reader.get(), text.data(), 9000, &bytes, nullptr), 0);
  const InstallUnderWay shown = parseInstalling(text.substr(0, bytes));
  EXPECT_EQ(std::tuple(shown.since, shown.processId, shown.path.substr(0, 12), shown.path.size() < 1100),
            std::tuple(record.time, GetCurrentProcessId(), "C:\\a\\x1b.exe", true));
  EXPECT_FALSE(FileHandle(
      CreateFileW(FileUtils::toPath(place).c_str(), GENERIC_WRITE, 7, nullptr, OPEN_EXISTING, 0, nullptr)));
  announced.reset();
  EXPECT_FALSE(FileUtils::exists(place));
  announced = folder.announce(record);
  EXPECT_TRUE(announced && FileUtils::exists(place)) << "in spite of who still reads the other";
  EXPECT_FALSE(folder.announce(record)) << "it is there already";
  EXPECT_TRUE(FileUtils::exists(place));
  EXPECT_TRUE(log.texts().empty());
}

TEST_F(RecordFolderTest, SaysOnceThatThereIsNoFolderAndTriesAgain) {
  testing::writeFile(path, "in the way");
  RecordFolder folder(path);
  FileHandle holder = open(path, FILE_SHARE_READ);
  EXPECT_FALSE(folder.prepare());
  EXPECT_FALSE(folder.append(record));
  for (const auto level : {LogLevel::Error, LogLevel::Warn})
    EXPECT_EQ(std::ranges::count(log.lines(), level, &testing::LoggedLine::level), 1);
  holder.reset();
  EXPECT_TRUE(folder.append(record));
}

}  // namespace
}  // namespace zarn
