#include "log/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <future>
#include <limits>
#include <map>
#include <stdexcept>
#include <thread>
#include <utility>

#include "log/log_line.h"
#include "log/probe_log.h"
#include "os/process.h"
#include "prefs/test_preferences.h"
#include "support/environment.h"
#include "support/recording_log.h"
#ifdef _WIN32
#include "os/handles_win.h"
#endif

namespace zarn::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

TEST(LogLine, ShowsWhenWhoAndHowBad) {
  LogLineRenderer renderer;
  constexpr std::int64_t noon = 1709210096;
  EXPECT_EQ(renderer.render({{LogLevel::Debug, 7, {noon, 5}}, ""}),
            logTimeText(noon) + ".005 [0007] DEBUG - \n");
  EXPECT_EQ(renderer.render({{LogLevel{9}, 123456, {noon + 1, 999}}, "text\n"}),
            logTimeText(noon + 1) + ".999 [123456] ? - text\n");
}

class LogInDirectory : public ::testing::Test {
 protected:
  LogInDirectory() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
  [[nodiscard]] std::string file(std::size_t number) const {
    return LogFiles::path(dir_.path(), "Test", number);
  }
  [[nodiscard]] Lines messages(std::size_t number) const { return messagesIn(dir_.path(), number); }
  /// One whole run of a logger that writes one line.
  void run(const std::string& line, std::int32_t kept = 5) const {
    ProbeLog log(dir_.path());
    log.keptFiles = kept;
    log.start("Test");
    log.write({line});
  }

  TempDirectory dir_;
  ProbeLog log_{dir_.path(), {kLogFileLimit, 200ms}};
};

TEST_F(LogInDirectory, LinesAreCompleteAndScreenedAgainWhenWritten) {
  log_.setThreshold(LogLevel::Info);
  log_.start("Test");
  {
    const LogTag tags[] = {LogTag("Install"), LogTag("Verify"), LogTag("Install")};
    log_.submit(LogLevel::Warn, "tagged");
    log_.submit(LogLevel::Warn, std::string(600, 'l'));
  }
  log_.submit(LogLevel::Debug, "screened");
  log_.write({"broken off\r\n"});
  EXPECT_THAT(readFile(file(0)), MatchesRegex("... .., .... ..:..:..\\.... \\[.+\\] WARN - .*\n.*\n.*\n"));
  EXPECT_THAT(messages(0), ElementsAre("[Install/Verify] tagged", "[Install/Verify] " + std::string(600, 'l'),
                                       "broken off\r"));
}

TEST_F(LogInDirectory, EveryRunBeginsAFileAndTheOldestGoes) {
  for (const std::int32_t i : {1, 2, 3, 4}) run("run " + std::to_string(i), 2);
  for (std::size_t n = 0; n <= 2; ++n) EXPECT_THAT(messages(n), ElementsAre("run " + std::to_string(4 - n)));
  EXPECT_FALSE(FileUtils::exists(file(3)));
  for (const std::int32_t kept : {0, -7}) run("kept " + std::to_string(kept), kept);
  EXPECT_THAT(messages(1), ElementsAre("kept 0"));  // less than one is one
  EXPECT_THAT(messages(2), ElementsAre("run 2"));   // what lies above the number stays
  for (const char* other : {"Test.02.log", "Test.7.log.old", "Test.x.log", "Test.99999999999999999999.log"})
    writeFile(dir_ / other, other);
  const auto began = std::chrono::steady_clock::now();
  run("huge", std::numeric_limits<std::int32_t>::max());
  EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
  for (const auto& [number, line] : {std::pair{1U, "kept -7"}, {2U, "kept 0"}, {3U, "run 2"}})
    EXPECT_THAT(messages(number), ElementsAre(line));
  EXPECT_FALSE(FileUtils::exists(file(8)));
  EXPECT_TRUE(FileUtils::exists(dir_ / "Test.02.log"));
}

TEST_F(LogInDirectory, AFullFileRotatesAfterTheWholeLine) {
  log_.whenOpened = [&] { log_.submit(LogLevel::Info, "banner"); };
  log_.start("Test");
  log_.write(Lines(9, std::string(1 << 20, 'm')));
  EXPECT_FALSE(FileUtils::exists(file(1)));
  log_.write({std::string(2'000'000, 'l'), "after"});
  const Lines full = messages(1);
  ASSERT_EQ(full.size(), 11U);
  EXPECT_EQ(full.front(), "banner");
  EXPECT_EQ(full.back().size(), 2'000'000U);
  EXPECT_THAT(messages(0), ElementsAre("banner", "after"));
}

TEST_F(LogInDirectory, ALookUpSpeaksIntoTheOldFileAndMayAskForAnotherRotation) {
  log_.whenLookedUp = [&, lookUps = 0]() mutable {
    if (++lookUps != 2) return;
    log_.submit(LogLevel::Error, "no home");
    log_.requestRotation();
  };
  log_.start("Test");
  log_.flush();
  log_.requestRotation();
  log_.write({"first", "second", "third"});
  for (const auto& [number, lines] :
       {std::pair{2U, Lines{"first", "no home"}}, {1U, {"second"}}, {0U, {"third"}}})
    EXPECT_EQ(messages(number), lines);
}

TEST_F(LogInDirectory, SynchronousLinesAreWrittenByTheirThread) {
  std::vector<std::thread::id> writers;
  log_.whileWriting = [&] {
    writers.push_back(std::this_thread::get_id());
    log_.submit(LogLevel::Error, "from inside");  // dropped, not written inside the other
  };
  log_.setSynchronous(true);
  log_.start("Test");
  log_.flush();
  log_.submit(LogLevel::Info, "one");
  EXPECT_THAT(messages(0), ElementsAre("one"));
  log_.stop();
  log_.setSynchronous(false);
  log_.write({"dropped"});
  EXPECT_THAT(writers, ElementsAre(std::this_thread::get_id()));
}

TEST_F(LogInDirectory, ManyProducersLoseNothingAndKeepTheirOrder) {
  constexpr int lines = 2000;
  const auto numbered = [](char producer, int i) {
    return producer + std::to_string(i) + std::string(i % 300 == 0 ? 5000U : 0U, '.');
  };
  const auto produce = [&](char producer) {
    for (int i = 0; i < lines; ++i) {
      log_.submit(LogLevel::Info, numbered(producer, i));
      if (i % 500 == 0) log_.flush();
    }
  };
  log_.start("Test");
  std::vector<std::thread> producers;
  for (const char producer : {'a', 'b', 'c', 'd'}) producers.emplace_back(produce, producer);
  for (auto& producer : producers) producer.join();
  log_.flush();
  std::map<char, int> next;
  for (const std::string& line : messages(0)) ASSERT_EQ(line, numbered(line[0], next[line[0]]++));
  EXPECT_EQ(next, (std::map<char, int>{{'a', lines}, {'b', lines}, {'c', lines}, {'d', lines}}));
}

TEST_F(LogInDirectory, TheWritersEndEndsEveryFlush) {
  std::promise<void> diskStops;
  std::promise<void> diskMoves;
  log_.whileWriting = [&] {
    diskStops.set_value();
    diskMoves.get_future().wait();
  };
  log_.start("Test");
  log_.submit(LogLevel::Info, "line");
  diskStops.get_future().wait();
  std::vector<std::future<bool>> flushes(3);
  for (auto& flush : flushes) flush = std::async(std::launch::async, [this] { return log_.flush(20s); });
  EXPECT_FALSE(log_.stop(100ms));
  diskMoves.set_value();
  for (auto& flush : flushes) EXPECT_EQ(flush.wait_for(10s), std::future_status::ready);
}

TEST_F(LogInDirectory, AFailedStartLeavesOneLineBehind) {
  const std::pair<std::function<void()>, const char*> failures[] = {
      {[] { throw std::runtime_error("no\ntoken=abc"); }, R"(logging: no\x0atoken=xxx)"},
      {[] { throw 7; }, "logging: unknown exception"}};
  for (const auto& [fail, reason] : failures) {
    ProbeLog log(dir_ / "made at the second try");
    log.whileMakingDirectories = [first = true, &fail = fail]() mutable {
      if (std::exchange(first, false)) fail();
    };
    EXPECT_ANY_THROW(log.start("Test"));
    EXPECT_THAT(readFile(FileUtils::join(log.directory, "Startup Crash.log")), EndsWith(reason));
  }
}

TEST_F(LogInDirectory, WhatCannotBeMovedIsToldAndStays) {
  ASSERT_TRUE(FileUtils::createDirectories(FileUtils::join(file(2), "full")));
  const RecordingLog told;
  for (const char* line : {"one", "two", "three"}) run(line, 2);
  EXPECT_THAT(told.texts(),
              ::testing::Contains(MatchesRegex("Couldn't delete the file .*Test\\.2\\.log: .+")));
  EXPECT_THAT(messages(1), ElementsAre("two"));
  EXPECT_THAT(messages(0), ElementsAre("three"));
}

TEST_F(LogInDirectory, PlantedLinksAreNotWrittenThrough) {
  // A full directory at number 1 cannot be replaced, so the link stays at number 0.
  ASSERT_TRUE(FileUtils::createDirectories(FileUtils::join(file(1), "full")));
  writeFile(dir_ / "victim", "precious");
  for (const std::string& planted : {file(0), dir_ / "Startup Crash.log"})
    boost::filesystem::create_hard_link(FileUtils::toPath(dir_ / "victim"), FileUtils::toPath(planted));
  run("secret", 1);
  LogFiles::writeStartupCrash(dir_.path(), "reason");
  EXPECT_EQ(readFile(dir_ / "victim"), "precious");
}

#ifdef _WIN32
TEST_F(LogInDirectory, AFolderThatCannotBeHeldLosesNoLine) {
  run("first");
  {
    const FileHandle alone(CreateFileW(FileUtils::toPath(dir_.path()).c_str(), FILE_LIST_DIRECTORY, 0,
                                       nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    ASSERT_TRUE(alone.isValid());
    run("second");
  }
  EXPECT_THAT(messages(0), ElementsAre("first", "second"));
  run("third");
  EXPECT_THAT(messages(0), ElementsAre("third"));
}
#endif

TEST_F(LogInDirectory, FatalWritesEverythingFirst) {
  // The dying process runs this test from its beginning and must find our directory.
  const std::string inherited = environmentVariable("ZARN_LOG_TEST_DIRECTORY").value_or("");
  log_.directory = inherited.empty() ? dir_.path() : inherited;
  setEnvironment("ZARN_LOG_TEST_DIRECTORY", log_.directory);
  const auto die = [&](std::size_t lines, bool onWriter) {
    if (onWriter) log_.whenOpened = [&] { log_.fatal("the end"); };  // must not wait for itself
    log_.start("Test");
    for (std::size_t i = 0; i < lines; ++i) log_.submit(LogLevel::Info, "line");
    if (!onWriter) log_.fatal("the end");
    log_.flush();
  };
  EXPECT_EXIT(die(0, true), kEndsFatally, "");
  EXPECT_EXIT(die(500, false), kEndsFatally, "");
  setEnvironment("ZARN_LOG_TEST_DIRECTORY", "");
  const Lines lines = messages(0);
  ASSERT_EQ(lines.size(), 501U);
  EXPECT_EQ(lines.back(), "FATAL ERROR: the end");
}

TEST_F(LogInDirectory, FatalEndsThoughTheWriterDoesNot) {
  const auto die = [this] {
    log_.whileWriting = [] { std::promise<void>().get_future().wait(); };
    log_.start("Test");
    log_.submit(LogLevel::Info, "line");
    log_.fatal("the end");
  };
  EXPECT_EXIT(die(), kEndsFatally, "");
}

class ServiceLog : public ::testing::Test {
 protected:
  ServiceLog() {
    preferences_.registerCatalogue();
    FileUtils::setApplicationDataOverride(dir_.path());
  }
  void TearDown() override { FileUtils::setApplicationDataOverride(""); }

  [[nodiscard]] Lines write(const char* line, std::size_t number = 0) {
    log_.submit(LogLevel::Info, line);
    log_.flush();
    return messagesIn(dir_ / "Logs", number);
  }

  TempDirectory dir_;
  ServerEventManager events_;
  TestPreferences preferences_{nullptr, events_};
  Log log_{preferences_, events_};
};

TEST_F(ServiceLog, PreferencesOnlyRaiseTheThreshold) {
  preferences_.setBoolValue("logDebug", false);
  log_.start("Test");
  EXPECT_EQ(log_.threshold(), LogLevel::Info);
  for (const auto& [id, level] :
       {std::pair{"LogMemoryUse", LogLevel::Debug}, {"LogVerbose", LogLevel::Verbose}}) {
    preferences_.setBoolValue(id, true);
    EXPECT_EQ(log_.threshold(), level);
    preferences_.setBoolValue(id, false);
    EXPECT_EQ(log_.threshold(), level);
  }
  preferences_.setBoolValue("LogSynchronous", true);
  EXPECT_TRUE(log_.isSynchronous());
}

TEST_F(ServiceLog, ScrubsAnnouncesAndKeepsAsManyFilesAsThePreferencesSay) {
  const char* const line = "auth_token=abc sentry_key=def";
  log_.start("Test");
  EXPECT_THAT(write(line), ElementsAre("auth_token=" + std::string(18, 'x')));
  EXPECT_TRUE(events_.lastRaised(kLogSentEvent).has_value());
  preferences_.setBoolValue("LogTokensForDebug", true);
  EXPECT_EQ(write(line).back(), "auth_token=abc sentry_key=xxx");
  preferences_.setIntValue("LogNumFiles", 1);
  for (const char* rotated : {"one", "two"}) {
    log_.requestRotation();
    EXPECT_EQ(write(rotated, 1).back(), rotated);
    EXPECT_THAT(write("", 2), ElementsAre());
  }
}

#ifdef _WIN32
TEST_F(ServiceLog, SaysAtOnceWhyAPathIsNotUsedWhenNothingWillRotate) {
  preferences_.setBoolValue("LogSynchronous", true);
  log_.start("Test");
  log_.flush();
  FileUtils::setApplicationDataOverride("");
  FileUtils::setLocalAppDataPathReader([] { return std::string(R"(\\nowhere\share)"); });
  log_.moveToCurrentDirectory();
  FileUtils::setLocalAppDataPathReader(nullptr);
  EXPECT_THAT(messagesIn(dir_ / "Logs").back(), EndsWith("is not used: it is a share."));
}
#endif

}  // namespace
}  // namespace zarn::testing
