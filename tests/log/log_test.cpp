#include "log/log.h"

#include "log/log_line.h"
#include "log/log_queue.h"
#include "log/probe_log.h"
#include "prefs/test_preferences.h"
#include "support/recording_events.h"
#ifdef _WIN32
#include "os/handles_win.h"
#endif

namespace zarn::testing {
namespace {

TEST(LogLine, ShowsWhenWhoAndHowBad) {
  LogLineRenderer renderer;
  constexpr std::int64_t noon = 1709210096;
  EXPECT_EQ(renderer.render({{LogLevel::Debug, 7, {noon, 5}}, ""}),
            logTimeText(noon) + ".005 [0007] DEBUG - \n");
  EXPECT_EQ(renderer.render({{LogLevel{9}, 123456, {noon + 1, 999}}, "text\n"}),
            logTimeText(noon + 1) + ".999 [123456] ? - text\n");
}

struct LogQueueTest : ::testing::Test {
  void push(std::string_view message) { queue.push({LogLevel::Info, 7, {1000, 5}}, "[tag] ", message); }
  /// Takes what is there; long messages by their length.
  Lines take() {
    EXPECT_TRUE(queue.take(batch));
    Lines shown;
    for (const LogItem& item : batch.items())
      shown.push_back(item.message.size() > 1000 ? std::to_string(item.message.size()) : item.message);
    return shown;
  }
  LogQueue queue;
  LogQueue::Batch batch;
};

TEST_F(LogQueueTest, IsBoundedInBytesAndTellsWhatItLost) {
  const std::string lost = "Log lines that were lost because the queue had no room for them: ";
  const std::string long_(1 << 20, 'l');
  const std::string length = std::to_string(long_.size() + 6);
  for (int i = 0; i < 100; ++i) push(long_);
  push("fits");
  Lines expected(63, length);
  expected.insert(expected.end(), {lost + "37", "[tag] fits"});
  EXPECT_EQ(take(), expected);
  const LogItem& notice = batch.items()[63];
  EXPECT_EQ(LogLineRenderer().render(notice),
            LogLineRenderer().render({{LogLevel::Warn, 7, {1000, 5}}, lost + "37"}));

  push(long_);  // what the writer has taken is not written yet
  push("small");
  EXPECT_THAT(take(), ElementsAre(lost + "1", "[tag] small"));
  push(long_);
  EXPECT_THAT(take(), ElementsAre(length));
}

TEST(LogQueueBounds, HoldForShortLinesTooAndWhatTheirSlotsKeepOfLongerOnes) {
  constexpr std::size_t most = kMaximumQueueBytes / sizeof(LogItem);
  for (const auto& [longOnes, share] : {std::pair{0U, 1.0}, {60'000U, 0.55}}) {
    LogQueue queue;
    LogQueue::Batch batch;
    for (std::size_t i = 0; i < longOnes; ++i) queue.push({}, {}, std::string(500, 'l'));
    for (std::size_t i = 0; i < 2 + most * 5 / 4; ++i) {
      queue.push({}, {}, "");
      static_cast<void>(i < 2 && queue.take(batch));  // the slots of the long ones come back
    }
    ASSERT_TRUE(queue.take(batch));
    EXPECT_NEAR(static_cast<double>(batch.items().size()) / most, share, 0.03);
  }
}

struct LogInDirectory : LogTest {
  LogInDirectory() : LogTest({kLogFileLimit, 200ms}) {}
  /// One whole run of a logger that writes one line.
  void run(const std::string& line, std::int32_t kept = 5) const {
    ProbeLog log(dir_.path());
    log.keptFiles = kept;
    log.start("Test");
    log.write({line});
  }
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
  EXPECT_THAT(messages(), ElementsAre("[Install/Verify] tagged", "[Install/Verify] " + std::string(600, 'l'),
                                      "broken off\r"));
}

TEST_F(LogInDirectory, EveryRunBeginsAFileAndTheOldestGoes) {
  const auto expectFiles = [&](const Lines& newestFirst) {
    for (std::size_t n = 0; n < newestFirst.size(); ++n)
      EXPECT_THAT(messages(n), ElementsAre(newestFirst[n]));
    EXPECT_FALSE(FileUtils::exists(file(newestFirst.size())));
  };
  for (const char* const line : {"1", "2", "3", "4"}) run(line, 2);
  expectFiles({"4", "3", "2"});
  for (const std::int32_t kept : {0, -7}) run(std::to_string(kept), kept);
  expectFiles({"-7", "0", "2"});  // less than one is one; what lies above the number stays
  for (const char* other : {"Test.02.log", "Test.7.log.old", "Test.x.log", "Test.99999999999999999999.log"})
    writeFile(dir_ / other, other);
  const auto began = std::chrono::steady_clock::now();
  run("huge", std::numeric_limits<std::int32_t>::max());
  EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
  expectFiles({"huge", "-7", "0", "2"});
  EXPECT_TRUE(!FileUtils::exists(file(8)) && FileUtils::exists(dir_ / "Test.02.log"));
}

TEST_F(LogInDirectory, AFullFileRotatesAfterTheWholeLine) {
  log_.whenOpened = [&] { log_.submit(LogLevel::Info, "banner"); };
  log_.whileWriting = [&] { EXPECT_TRUE(log_.flush(0ms)) << "the writer does not wait for itself"; };
  log_.start("Test");
  log_.write(Lines(9, std::string(1 << 20, 'm')));
  EXPECT_FALSE(FileUtils::exists(file(1)));
  log_.write({std::string(2'000'000, 'l'), "after"});
  const Lines full = messages(1);
  ASSERT_EQ(full.size(), 11U);
  EXPECT_EQ(full.front() + std::to_string(full.back().size()), "banner2000000");
  EXPECT_THAT(messages(), ElementsAre("banner", "after"));
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
  EXPECT_THAT(messages(), ElementsAre("one"));
  log_.stop();
  log_.setSynchronous(false);
  log_.write({"dropped"});
  EXPECT_THAT(writers, ElementsAre(std::this_thread::get_id()));
}

TEST_F(LogInDirectory, TheWritersEndEndsEveryFlush) {
  std::promise<void> diskStops, diskMoves;
  log_.whileWriting = [&] {
    diskStops.set_value();
    diskMoves.get_future().wait();
  };
  log_.start("Test");
  log_.submit(LogLevel::Info, "line");
  diskStops.get_future().wait();
  std::vector<std::future<bool>> flushes(3);
  for (auto& flush : flushes) flush = std::async(std::launch::async, [this] { return log_.flush(20s); });
  EXPECT_FALSE(log_.flush(100ms));
  EXPECT_FALSE(log_.stop(100ms));
  diskMoves.set_value();
  for (auto& flush : flushes) EXPECT_EQ(flush.wait_for(10s), std::future_status::ready);
}

TEST_F(LogInDirectory, AFailedStartLeavesOneLineBehind) {
  for (const bool isKnown : {true, false}) {
    ProbeLog log(dir_ / "made at the second try");
    log.whileMakingDirectories = [&, first = true]() mutable {
      if (std::exchange(first, false)) isKnown ? throw std::runtime_error("no\ntoken=abc") : throw 7;
    };
    EXPECT_ANY_THROW(log.start("Test"));
    EXPECT_THAT(readFile(FileUtils::join(log.directory, "Startup Crash.log")),
                EndsWith(isKnown ? R"(logging: no\x0atoken=xxx)" : "logging: unknown exception"));
  }
}

TEST_F(LogInDirectory, WhatCannotBeMovedIsToldAndStays) {
  ASSERT_TRUE(FileUtils::createDirectories(FileUtils::join(file(2), "full")));
  const RecordingLog told;
  for (const char* line : {"one", "two", "three"}) run(line, 2);
  EXPECT_THAT(told.texts(),
              ::testing::Contains(MatchesRegex("Couldn't delete the file .*Test\\.2\\.log: .+")));
  EXPECT_EQ(messages(1).front() + messages().front(), "twothree");
}

TEST_F(LogInDirectory, PlantedLinksAreNotWrittenThrough) {
  // A full directory at number 1 cannot be replaced, so the link stays at number 0.
  ASSERT_TRUE(FileUtils::createDirectories(FileUtils::join(file(1), "full")));
  writeFile(dir_ / "victim", "precious");
  for (const std::string& planted : {file(0), dir_ / "Startup Crash.log"})
    fs::create_hard_link(toPath(dir_ / "victim"), toPath(planted));
  run("secret", 1);
  LogFiles::writeStartupCrash(dir_.path(), "reason");
  EXPECT_EQ(readFile(dir_ / "victim"), "precious");
}

#ifdef _WIN32
TEST_F(LogInDirectory, AFolderThatCannotBeHeldLosesNoLine) {
  run("first");
  {
    const FileHandle alone(CreateFileW(toPath(dir_.path()).c_str(), FILE_LIST_DIRECTORY, 0, nullptr,
                                       OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    ASSERT_TRUE(alone.isValid());
    run("second");
  }
  EXPECT_THAT(messages(), ElementsAre("first", "second"));
  run("third");
  EXPECT_THAT(messages(), ElementsAre("third"));
}
#endif

TEST_F(LogInDirectory, FatalWritesEverythingFirstButWaitsForNoWriterForLong) {
  struct TellingEvents final : RecordingEvents {
    bool flush(std::chrono::milliseconds /*limit*/) noexcept override {
      for (const std::string& event : take()) std::cerr << event;
      return true;
    }
  };
  const auto die = [this] {
    const TellingEvents events;
    log_.start("Test");
    for (int i = 0; i < 500; ++i) log_.submit(LogLevel::Info, "line");
    log_.fatal("the end");
  };
  std::string line;
  log_.scrub = [&](const std::string& message) { line = message; };
  log_.whileWriting = [&] { std::cerr << (line == "line" ? "." : line); };
  expectFatalEnd(die, EndsWith(std::string(500, '.') + "FATAL ERROR: the end1021|0xC0DEDEAD|the end"));
  log_.whenOpened = [&] { log_.fatal("the end"); };  // on the writer itself
  expectFatalEnd(die);
  log_.whenOpened = [] { std::promise<void>().get_future().wait(); };
  expectFatalEnd(die);
}

struct ServiceLog : ::testing::Test {
  ServiceLog() {
    preferences.registerCatalogue();
    FileUtils::setApplicationDataOverride(dir.path());
  }
  ~ServiceLog() override { FileUtils::setApplicationDataOverride(""); }
  [[nodiscard]] Lines write(const char* line, std::size_t number = 0) {
    log.submit(LogLevel::Info, line);
    log.flush();
    return messagesIn(dir / "Logs", number);
  }
  TempDirectory dir;
  ServerEventManager events;
  TestPreferences preferences{nullptr, events};
  Log log{preferences, events};
};

TEST_F(ServiceLog, PreferencesOnlyRaiseTheThreshold) {
  preferences.setBoolValue("logDebug", false);
  log.start("Test");
  EXPECT_EQ(log.threshold(), LogLevel::Info);
  for (const bool raises : {true, false}) {
    preferences.setBoolValue("LogMemoryUse", raises);
    EXPECT_EQ(log.threshold(), raises ? LogLevel::Debug : LogLevel::Verbose);
    preferences.setBoolValue("LogVerbose", raises);
    EXPECT_EQ(log.threshold(), LogLevel::Verbose);
  }
  preferences.setBoolValue("LogSynchronous", true);
  EXPECT_TRUE(log.isSynchronous());
}

TEST_F(ServiceLog, AChosenLevelIsStrongerThanThePreferences) {
  for (const auto& [chosen, level] : {std::pair{"info", LogLevel::Info},
                                      {"debug", LogLevel::Debug},
                                      {"trace", LogLevel::Debug},
                                      {"VERBOSE", LogLevel::Verbose}}) {
    ASSERT_TRUE(os::setEnvironmentVariable(names::kLogLevelVariable.narrow, chosen));
    Log one(preferences, events);
    one.start("Test");
    preferences.setBoolValue("LogMemoryUse", true);
    EXPECT_EQ(one.threshold(), level) << chosen;
  }
  ASSERT_TRUE(os::setEnvironmentVariable(names::kLogLevelVariable.narrow, ""));
}

TEST_F(ServiceLog, TakesItsCollectorFromTheEnvironmentAndSaysWhatIsNone) {
  log.start("Test");
  for (const auto& [collector, minutes, line] :
       {std::tuple{"no-port", "7", "ZARN_MEDIA_SERVER_SYSLOG_COLLECTOR is 'no-port' and not host:port."},
        {"[::1]:9", "0", "ZARN_MEDIA_SERVER_SYSLOG_MINUTES is '0' and not a positive number."},
        {"127.0.0.1:9", "7", "Enabling networked logging for 7 minutes."}}) {
    setEnvironment("ZARN_MEDIA_SERVER_SYSLOG_COLLECTOR", collector);
    setEnvironment("ZARN_MEDIA_SERVER_SYSLOG_MINUTES", minutes);
    log.configureNetworkLoggingFromEnvironment();
    EXPECT_THAT(write(""), ::testing::Contains(EndsWith(line)));
  }
}

TEST_F(ServiceLog, ScrubsAnnouncesAndKeepsAsManyFilesAsThePreferencesSay) {
  const char* const line = "auth_token=abc sentry_key=def";
  log.start("Test");
  EXPECT_THAT(write(line), ElementsAre("auth_token=" + std::string(18, 'x')));
  EXPECT_TRUE(events.lastRaised(kLogSentEvent).has_value());
  preferences.setBoolValue("LogTokensForDebug", true);
  EXPECT_EQ(write(line).back(), "auth_token=abc sentry_key=xxx");
  preferences.setIntValue("LogNumFiles", 1);
  for (const char* rotated : {"one", "two"}) {
    log.requestRotation();
    EXPECT_EQ(write(rotated, 1).back(), rotated);
    EXPECT_THAT(write("", 2), ElementsAre());
  }
}

}  // namespace
}  // namespace zarn::testing
