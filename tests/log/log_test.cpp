#include "log/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log/probe_log.h"
#include "prefs/test_preferences.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

class ServiceLog : public ::testing::Test {
 protected:
  ServiceLog() {
    preferences_.registerCatalogue();
    FileUtils::setApplicationDataOverride(dir_ / "first");
  }
  void TearDown() override { FileUtils::setApplicationDataOverride(""); }

  [[nodiscard]] Lines messages(const char* directory) {
    log_.flush();
    return messagesIn(FileUtils::join(dir_ / directory, "Logs"));
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

TEST_F(ServiceLog, ScrubsAndAnnouncesLines) {
  log_.start("Test");
  log_.submit(LogLevel::Info, "auth_token=abc sentry_key=def");
  EXPECT_THAT(messages("first"), ElementsAre("auth_token=" + std::string(18, 'x')));
  EXPECT_TRUE(events_.lastRaised(kLogSentEvent).has_value());
  preferences_.setBoolValue("LogTokensForDebug", true);
  log_.submit(LogLevel::Info, "auth_token=abc sentry_key=def");
  EXPECT_EQ(messages("first").back(), "auth_token=abc sentry_key=xxx");
}

}  // namespace
}  // namespace zarn::testing
