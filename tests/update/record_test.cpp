// What is written of a request: the status that it ends with, its line, and the file for it.
#include <nlohmann/json.hpp>

#include "support/test.h"
#include "update/record_folder.h"
#ifdef _WIN32
#include <windows.h>

#include <sddl.h>

#include "os/handles_win.h"
#include "util/string_utils.h"
#endif

namespace zarn::testing {
namespace {

TEST(Status, IsWhatAnInstallersExitCodeBecomes) {
  // The events of installs show what else becomes of them.
  for (const auto& [code, restarts] :
       {std::pair{0U, true}, {3010U, true}, {1641U, false}, {1603U, false}, {30003U, false}})
    EXPECT_EQ(judgeExitCode(code).restartsService, restarts) << code;
  for (const int number : {5, 30004, 30005, 30006}) EXPECT_FALSE(isSuccess(Status{number})) << number;
}

/// All that begins with `mark` in `text`, up to where a constant's value ends.
std::string constantsIn(const std::string& text, const std::string& mark) {
  std::string found;
  for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; ++at)
    found += text.substr(at + mark.size(),
                         text.find_first_of(",; \n}", text.find("= ", at) + 2) - at - mark.size()) +
             ";";
  return found;
}

TEST(Status, IsTheSameForCallersAndInTheDocumentation) {
  const std::string manual = readFile(ZARN_SOURCE "/docs/operations.md");
  std::string wantedNumbers, wantedConstants;
  constexpr std::string_view heading = "\n| status | meaning | what to do |\n|---|---|---|\n";
  std::size_t row = manual.find(heading) + heading.size();
  for (const StatusFacts& facts : statuses()) {
    const std::string number = std::to_string(numberOf(facts.status));
    std::string name;  // as C writes it
    for (const char c : facts.name)
      name.append(c < 'a' && !name.empty() ? "_" : "").push_back(static_cast<char>(std::toupper(c)));
    wantedNumbers.append(name).append(" = ").append(number).append(";");
    wantedConstants.append(facts.name).append(" = ZARN_UPDATE_STATUS_").append(name).append(";");
    EXPECT_EQ(manual.compare(row, number.size() + 4, "| " + number + " |"), 0) << number;
    const std::size_t end = manual.find('\n', row);
    if (facts.status == Status::Failed) {
      EXPECT_THAT(manual.substr(row, end - row),
                  HasSubstr("(over " + std::string(kMaximumBundleWords) + ")"));
    }
    if (facts.isSuccess && facts.installerExit != 0U) {
      EXPECT_THAT(facts.meaning, HasSubstr("exit code " + std::to_string(*facts.installerExit) + ")"));
    }
    row = end + 1;
  }
  EXPECT_EQ(constantsIn(readFile(ZARN_SOURCE "/client/zarn_update_client.h"), "  ZARN_UPDATE_STATUS_"),
            wantedNumbers);
  EXPECT_EQ(constantsIn(readFile(ZARN_SOURCE "/client/update_client.h"), "constexpr std::int32_t k"),
            wantedConstants);
  EXPECT_EQ(manual[row], '\n') << "a row of no status";
  std::vector<std::string> words(kCheckNames.begin(), kCheckNames.end());
  words.insert(words.end(), kVerdictNames.begin(), kVerdictNames.end());
  const auto object = toJson(InstallRecord());
  for (const auto& entry : object.items()) words.push_back(entry.key());
  for (const auto& word : words) EXPECT_THAT(manual, HasSubstr("`" + word + "`"));
}

/// A record, a line of another origin, and what is read of that.
std::string lineOf(std::size_t number) {
  return tableIn("update/records.jsonl").at(number).front() + "\n";
}

TEST(InstallRecord, IsOneLineAndReadBackFromIt) {
  InstallRecord record;
  record.time = isoTime(std::chrono::system_clock::time_point(std::chrono::milliseconds(1'795'256'100'007)));
  record.caller = {"S-1-5-21-7", 42, "C:\\a.exe"};
  record.path = "C:\\a \"b\"\n\xff.exe";
  record.size = 5'000'000'000;
  record.sha256 = "ab", record.signerDigest = "cd", record.signerSubject = "CN=Zarn";
  EXPECT_TRUE(record.note(Check::Open, Verdict::Passed));
  EXPECT_FALSE(record.note(Check::Copy, Verdict::Failed, "112, Full."));
  EXPECT_FALSE(record.note(Check::Identity, Verdict::Refused, "5, Access denied."));
  record.reason = "Too many wait.";
  record.status = Status::SignerRefused;
  record.exitCode = 0xffffffff, record.installerStarted = false, record.durationMilliseconds = 12;
  record.product = "P", record.productVersion = "5.1";
  EXPECT_EQ(recordLine(record), lineOf(0));
  EXPECT_EQ(recordLine(parseRecord(lineOf(0)).value()), lineOf(0));
}

TEST(InstallRecord, CutsWhatOthersWroteAndLeavesOutWhatIsNotKnown) {
  const std::string endless(5000, 'x'), cut = std::string(1024, 'x') + "... (5000 characters)";
  InstallRecord record;
  record.caller.image = record.path = record.signerSubject = record.product = record.productVersion = endless;
  record.note(Check::Policy, Verdict::Refused, endless);
  const auto object = nlohmann::json::parse(recordLine(record));
  EXPECT_EQ(object["caller"], nlohmann::json({{"sid", nullptr}, {"processId", nullptr}, {"image", cut}}));
  EXPECT_EQ(object["checks"][6]["detail"], cut);
  for (const char* key : {"path", "signerSubject", "product", "productVersion"})
    EXPECT_EQ(object[key], cut) << key;
  for (const char* key : {"size", "reason", "exitCode", "durationMs"}) EXPECT_EQ(object[key], nullptr) << key;
}

TEST(InstallRecord, IsReadFromLinesOfAnyOrigin) {
  const std::string bomb(200'000, '[');
  const std::string cut = lineOf(0).substr(0, lineOf(0).size() - 2);
  for (const std::string& line : {""s, "[1]"s, "{}"s, bomb, "{\"time\":" + bomb, "\"x\""s, R"({"status":1})"s,
                                  R"({"time":"t","status":"0"})"s, cut}) {
    EXPECT_FALSE(parseRecord(line)) << line.substr(0, 40);
  }
  EXPECT_EQ(recordLine(parseRecord(lineOf(1)).value()), lineOf(2));
}

struct RecordFile : ::testing::Test {
  RecordingLog log;
  TempDirectory folder;
  const std::string file = folder / "Update History.jsonl", earlier = folder / "Update History.1.jsonl";

  bool append(std::string_view line) const {
    using FileUtils::HeldFolder;
    const auto held = HeldFolder::hold(folder.path(), os::Links::Refuse, FileUtils::OwnPlaces::Refuse);
    return appendLine(held.value(), kHistoryNames, line, 12);
  }
};

TEST_F(RecordFile, HasWholeLinesAndBeginsAnewWhenLargeButOnlyWhereItCan) {
  writeFile(file, "cut");
  for (const char* line : {"one\n", "two\n", "three\n", "four\n"}) EXPECT_TRUE(append(line));
  EXPECT_EQ(readFile(earlier) + "|" + readFile(file), "cut\none\ntwo\n|three\nfour\n");
  fs::remove(toPath(earlier));
  fs::create_directories(toPath(earlier + "/x"));
  EXPECT_TRUE(append("12345678\n"));
  EXPECT_TRUE(append("12345678\n"));
  EXPECT_FALSE(append("12345678\n")) << "it cannot be moved, and grows no further";
}

TEST_F(RecordFile, IsWrittenThroughNoLinkAndNotWithoutItsFolder) {
  writeFile(folder / "target", "kept");
  fs::create_hard_link(toPath(folder / "target"), toPath(file));
  EXPECT_FALSE(appendToHistory(folder.path(), "line\n"));
  EXPECT_EQ(readFile(folder / "target"), "kept");
  EXPECT_FALSE(appendToHistory(folder / "missing", "line\n"));
  EXPECT_EQ(log.count("The update history could not be written."), 2);
}

#ifdef _WIN32
// What the rights do is Windows' alone: Wine maps them to those of the Unix file.
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
    using Entries = fs::directory_iterator;
    return std::count_if(Entries(toPath(parent.path())), Entries(), [](const auto& entry) {
      return toUtf8(entry.path().filename()).starts_with("Record untrusted ");
    });
  }
  static FileHandle open(const std::string& path, DWORD share) {
    return FileHandle(
        CreateFileW(toPath(path).c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
  }

  RecordingLog log;
  TempDirectory parent;
  const std::string path = parent / "Record", history = FileUtils::join(path, "Update History.jsonl");
  const fs::path wide = toPath(path);
  InstallRecord record;
};

TEST_F(RecordFolderTest, TrustsWhatOnlyTheSystemAndAdministratorsMayWrite) {
  for (const Lines& row : tableIn("update/descriptors.txt")) {
    const LocalMemory judged = descriptor(row[1]);
    ASSERT_NE(judged.get(), nullptr) << row[1];
    EXPECT_EQ(isTrustedDescriptor(judged.get()), row[0] == "trusted") << row[1];
  }
}

TEST_F(RecordFolderTest, IsMadeAndHeldKeepsRefusalsApartAndLosesNoneToAReader) {
  {
    RecordFolder folder(path);
    EXPECT_TRUE(folder.prepare());
    EXPECT_FALSE(RemoveDirectoryW(wide.c_str())) << "held";
    EXPECT_TRUE(folder.append(record));
    EXPECT_EQ(readFile(FileUtils::join(path, "Refused Requests.jsonl")), recordLine(record));
    record.exitCode = 1603;
    EXPECT_TRUE(folder.append(record));
    const FileHandle reader = open(history, 0);
    EXPECT_TRUE(folder.append(record));
  }
  EXPECT_TRUE(checkRecordFolder(path));
  for (const char* name : {"Update History.jsonl", "Update History.2026-11-21T10.15.00.007Z.jsonl"})
    EXPECT_EQ(readFile(FileUtils::join(path, name)), recordLine(record)) << name;
  EXPECT_TRUE(RecordFolder(path).append(record)) << "what is there already is taken up again";
  EXPECT_EQ(asides(), 0);
}

TEST_F(RecordFolderTest, WhatOthersMayHavePutThereIsMovedAsideAndKept) {
  for (const bool isFile : {false, true}) {
    if (!isFile) CreateDirectoryW(wide.c_str(), nullptr);
    writeFile(isFile ? path : history, "forged\n");
    if (!isFile)
      SetFileSecurityW(wide.c_str(), DACL_SECURITY_INFORMATION, descriptor("D:(A;OICI;FA;;;WD)").get());
    EXPECT_EQ(checkRecordFolder(path).error().code(), kFolderNotTrusted);
    EXPECT_TRUE(RecordFolder(path).append(record));
    EXPECT_TRUE(checkRecordFolder(path));
    EXPECT_FALSE(FileUtils::exists(history));
    EXPECT_EQ(asides(), isFile ? 2 : 1);
    fs::remove_all(wide);
  }
  EXPECT_THAT(log.texts(), Contains(HasSubstr("was not the service's own and is now")));
}

TEST_F(RecordFolderTest, ShowsAnInstallAsLongAsItIsWorkedOnWhateverStandsInItsPlace) {
  const std::string place = FileUtils::join(path, "Installing.json");
  RecordFolder folder(path);
  EXPECT_FALSE(folder.announce(record)) << "not held yet";
  ASSERT_TRUE(RecordFolder(path).prepare());
  writeFile(place, "left by a power cut");
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
  EXPECT_FALSE(
      FileHandle(CreateFileW(toPath(place).c_str(), GENERIC_WRITE, 7, nullptr, OPEN_EXISTING, 0, nullptr)));
  announced.reset();
  EXPECT_FALSE(FileUtils::exists(place));
  announced = folder.announce(record);
  EXPECT_TRUE(announced && FileUtils::exists(place)) << "in spite of who still reads the other";
  EXPECT_FALSE(folder.announce(record)) << "it is there already";
  EXPECT_TRUE(FileUtils::exists(place));
  EXPECT_TRUE(log.texts().empty());
}

TEST_F(RecordFolderTest, SaysOnceThatThereIsNoFolderAndTriesAgain) {
  writeFile(path, "in the way");
  RecordFolder folder(path);
  FileHandle holder = open(path, FILE_SHARE_READ);
  EXPECT_FALSE(folder.prepare());
  EXPECT_FALSE(folder.append(record));
  for (const auto level : {LogLevel::Error, LogLevel::Warn})
    EXPECT_EQ(std::ranges::count(log.lines(), level, &LoggedLine::level), 1);
  holder.reset();
  EXPECT_TRUE(folder.append(record));
}
#endif

}  // namespace
}  // namespace zarn::testing
