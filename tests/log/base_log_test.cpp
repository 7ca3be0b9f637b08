#include "log/base_log.h"

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

#include "log/probe_log.h"
#include "os/process.h"
#include "support/environment.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

class LogInDirectory : public ::testing::Test {
 protected:
  LogInDirectory() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
  [[nodiscard]] std::string file(std::size_t number) const {
    return LogFiles::path(dir_.path(), "Test", number);
  }
  [[nodiscard]] Lines messages(std::size_t number) const { return messagesIn(dir_.path(), number); }
  /// One whole run of a logger that writes one line.
  void run(const std::string& line, std::int32_t kept) const {
    ProbeLog log(dir_.path());
    log.keptFiles = kept;
    log.start("Test");
    log.write({line});
  }

  TempDirectory dir_;
  ProbeLog log_{dir_.path()};
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
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5));
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

TEST_F(LogInDirectory, WhatALookUpSaysIsStillInTheOldFile) {
  log_.whenLookedUp = [&, lookUps = 0]() mutable {
    if (++lookUps == 2) log_.submit(LogLevel::Error, "no home");
  };
  log_.start("Test");
  log_.flush();
  log_.requestRotation();
  log_.write({"last", "first"});
  EXPECT_THAT(messages(1), ElementsAre("last", "no home"));
  EXPECT_THAT(messages(0), ElementsAre("first"));
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

TEST_F(LogInDirectory, AFailedStartLeavesOneLineBehind) {
  log_.whileMakingDirectories = [first = true]() mutable {
    if (std::exchange(first, false)) throw std::runtime_error("no\nroom");
  };
  EXPECT_THROW(log_.start("Test"), std::runtime_error);
  EXPECT_THAT(readFile(dir_ / "Startup Crash.log"), ::testing::EndsWith("logging: no\\x0aroom"));
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

}  // namespace
}  // namespace zarn::testing
