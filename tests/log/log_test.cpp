#include "log/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log/log_files.h"
#include "log/probe_log.h"
#include "prefs/test_preferences.h"

namespace zarn {
namespace {

using ::testing::ElementsAre;
using testing::messagesIn;
using testing::TempDirectory;

class ServiceLog : public ::testing::Test {
 protected:
  ServiceLog() {
    preferences_.registerCatalogue();
    FileUtils::setApplicationDataOverride(dir_ / "first");
  }
  ~ServiceLog() override { FileUtils::setApplicationDataOverride(""); }

  [[nodiscard]] std::vector<std::string> messages(const char* directory, std::size_t number = 0) {
    log_.flush();
    return messagesIn(LogFiles::path(FileUtils::join(dir_ / directory, "Logs"), "Test", number));
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
  preferences_.setBoolValue("LogMemoryUse", true);
  EXPECT_EQ(log_.threshold(), LogLevel::Debug);
  preferences_.setBoolValue("LogVerbose", true);
  EXPECT_EQ(log_.threshold(), LogLevel::Verbose);
  for (const char* id : {"LogVerbose", "LogMemoryUse"}) preferences_.setBoolValue(id, false);
  EXPECT_EQ(log_.threshold(), LogLevel::Verbose);

  preferences_.setBoolValue("LogSynchronous", true);
  EXPECT_TRUE(log_.isSynchronous());
  preferences_.setBoolValue("LogSynchronous", false);
  EXPECT_FALSE(log_.isSynchronous());
}

TEST_F(ServiceLog, ScrubsAndAnnouncesLines) {
  log_.start("Test");
  log_.submit(LogLevel::Info, "auth_token=abc sentry_key=def");
  EXPECT_THAT(messages("first"), ElementsAre("auth_token=" + std::string(18, 'x')));
  EXPECT_TRUE(events_.lastRaised(kLogSentEvent).value_or(0) > 0);
  preferences_.setBoolValue("LogTokensForDebug", true);
  log_.submit(LogLevel::Info, "auth_token=abc sentry_key=def");
  EXPECT_EQ(messages("first").back(), "auth_token=abc sentry_key=xxx");
}

TEST_F(ServiceLog, MovesToANewDirectoryAfterSayingSo) {
  log_.setFileOpenedRoutine([this] { log_.submit(LogLevel::Info, "banner"); });
  log_.start("Test");
  log_.flush();
  FileUtils::setApplicationDataOverride(dir_ / "second");
  log_.moveToCurrentDirectory();
  log_.submit(LogLevel::Info, "there");
  EXPECT_THAT(messages("first"), ElementsAre("banner", "Log rotation requested."));
  EXPECT_THAT(messages("second"), ElementsAre("banner", "there"));
}

TEST_F(ServiceLog, KeepsAsManyFilesAsThePreferenceSays) {
  log_.start("Test");
  preferences_.setIntValue("LogNumFiles", 2);
  for (const char* line : {"1", "2", "3", "4"}) {
    log_.flush();
    log_.requestRotation();
    log_.submit(LogLevel::Info, line);
  }
  EXPECT_THAT(messages("first", 1), ElementsAre("4"));
  EXPECT_THAT(messages("first", 2), ElementsAre("3"));
  EXPECT_TRUE(messages("first", 3).empty());
}

TEST_F(ServiceLog, ADirectoryThatCannotBeMadeCostsTheFileOnly) {
  testing::writeFile(dir_ / "first", "in the way");
  EXPECT_NO_THROW(log_.start("Test"));
  log_.submit(LogLevel::Info, "line");
  log_.flush();
  EXPECT_TRUE(events_.lastRaised(kLogSentEvent).has_value());
  EXPECT_EQ(testing::readFile(dir_ / "first"), "in the way");
}

}  // namespace
}  // namespace zarn
