#include "prefs/preferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "prefs/preferences_fixture.h"
#include "prefs/test_preferences.h"
#include "prefs/value_text.h"
#include "support/recording_log.h"
#include "util/file_utils.h"

namespace zarn {
namespace {

using ::testing::ElementsAre;
using testing::Ids;
using ::testing::IsEmpty;
using testing::LoggedLine;
using testing::RecordingLog;

// Before anything asks for the instance: the tests of this program must not touch a real registry.
[[maybe_unused]] const bool onTestStore = (Preferences::useTestStore(true), true);

class PreferencesTest : public ::testing::Test {
 protected:
  PreferencesTest() { store.registerCatalogue(); }

  testing::RecordingBus bus;
  TestPreferences store{nullptr, bus.events};
  RecordingLog log;
};

TEST_F(PreferencesTest, TheCatalogueIsComplete) {
  store.registerCatalogue();  // again: adds nothing
  std::set<std::string> ids;
  for (const auto& preference : store.registrationOrder()) ids.insert(preference->key());
  EXPECT_EQ(store.registrationOrder().size(), 175U);
  EXPECT_EQ(ids.size(), 175U);
}

TEST_F(PreferencesTest, ReadsFallBackSilently) {
  EXPECT_EQ(store.getInt("LogNumFiles"), 5);
  EXPECT_TRUE(store.getBool("logDebug"));
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  EXPECT_FALSE(store.getBool("NoSuchPref"));
  EXPECT_EQ(store.getString("NoSuchPref"), "");
  EXPECT_EQ(store.getInt("NoSuchPref"), 0);
  EXPECT_EQ(store.getDouble("NoSuchPref"), 0.0);
  // Stored texts that are no value of the type.
  store.setStringValue("logDebug", "yes");
  store.setStringValue("LogNumFiles", "7 ");
  store.setStringValue("TranscoderH264MinimumCRF", "1e");
  EXPECT_TRUE(store.getBool("logDebug"));
  EXPECT_EQ(store.getInt("LogNumFiles"), 5);
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PreferencesTest, SetValueConvertsToTheType) {
  const std::tuple<const char*, const char*, const char*> stored[] = {
      {"LogVerbose", "TRUE", "1"},
      {"LogVerbose", "yes", "0"},
      {"LogVerbose", "1", "1"},
      {"LogVerbose", "01", "0"},
      {"LogVerbose", "", "removed"},
      {"TranscoderH264MinimumCRF", "0.1", "0.10000000000000001"},
      {"LocalAppDataPath", "D:\\", "D:\\"},
      {"LogNumFiles", "-3", "-3"},
  };
  for (const auto& [id, text, expected] : stored) {
    EXPECT_TRUE(store.setValue(id, text));
    EXPECT_EQ(store.getStringValueWithDefault(id, "removed"), expected) << id;
  }
  EXPECT_FALSE(store.setValue("LogVerbose", ""));
  EXPECT_THROW(store.setValue("LogNumFiles", "12abc"), ConversionError);
  EXPECT_THROW(store.setValue("TranscoderH264MinimumCRF", "wide"), ConversionError);
  EXPECT_EQ(store.getInt("LogNumFiles"), -3);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_FALSE(store.setValue("NoSuchPref", "1"));
  EXPECT_THAT(log.lines(),
              ElementsAre(LoggedLine{LogLevel::Warn, "Preferences: cannot find unknown pref NoSuchPref"}));
}

TEST_F(PreferencesTest, EveryWriteIsAnnouncedOnce) {
  bus.sink.onModified = [&] { static_cast<void>(store.getInt("b")); };  // a sink may read again
  store.setBoolValue("a", true);
  store.setIntValue("b", 1);
  store.setDoubleValue("c", 1);
  store.setStringValue("d", "");
  EXPECT_TRUE(store.removeValue("a"));
  EXPECT_FALSE(store.removeValue("a"));  // announced all the same
  EXPECT_EQ(bus.sink.ids, (Ids{"a", "b", "c", "d", "a", "a"}));
}

TEST(Preferences, OverridesComeFromTheEnvironment) {
  const auto setVariable = [](const char* value) {
#ifdef _WIN32
    _putenv_s("ZARN_MEDIA_SERVER_DEFAULT_PREFERENCES", value);
#else
    setenv("ZARN_MEDIA_SERVER_DEFAULT_PREFERENCES", value, 1);
#endif
  };
  const RecordingLog log;
  setVariable("LogNumFiles=9&logDebug=no&LocalAppDataPath=C%3A%5CCaf%C3%A9");
  TestPreferences store;
  setVariable("");
  store.registerCatalogue();
  EXPECT_EQ(store.getInt("LogNumFiles"), 9);
  EXPECT_TRUE(store.getBool("logDebug"));
  EXPECT_EQ(store.getString("LocalAppDataPath"), "C:\\Caf\xC3\xA9");
  EXPECT_THAT(log.texts(), ElementsAre("Preferences: invalid default value: logDebug=no"));
}

struct AllButZ final : PreferenceAccessCheck {
  bool allows(const Preference& preference) const override { return preference.key() != "z"; }
};

TEST(Preferences, ListingFilters) {
  TestPreferences store(nullptr);
  const auto add = [&](const char* id, PreferenceFlags flags) {
    store.addPreference(std::make_shared<Preference>(id, true, flags, "", "", "", Preference::Overrides()));
  };
  add("z", PreferenceFlags::None);
  add("private", PreferenceFlags::Private);
  add("account", PreferenceFlags::RequiresSignIn);
  add("a", PreferenceFlags::Hidden);
  const AllButZ allButZ;
  const auto list = [&](const PreferenceListRequest& request) {
    std::vector<std::shared_ptr<Preference>> found;
    store.listPreferences(request, found);
    Ids ids;
    for (const auto& preference : found) ids.push_back(preference->key());
    return ids;
  };
  EXPECT_EQ(list({}), (Ids{"z", "a"}));
  store.setStringValue("ZarnOnlineToken", "t");
  EXPECT_EQ(list({}), (Ids{"z", "account", "a"}));
  // The check is asked only about requests that carry a token.
  EXPECT_EQ(list({{}, {}, &allButZ}), (Ids{"z", "account", "a"}));
  EXPECT_EQ(list({{{"x-zarn-token", "t"}}, {}, &allButZ}), (Ids{"account", "a"}));
  EXPECT_EQ(list({{}, {{"X-Zarn-Token", ""}}, &allButZ}), (Ids{"account", "a"}));
  EXPECT_EQ(list({{{"X-Zarn-Token", "t"}}, {}, nullptr}), (Ids{"z", "account", "a"}));
}

TEST_F(PreferencesTest, WhatIsShownHasALabelAndLabelsAreOfSomething) {
  PreferenceTexts labels;
  PreferenceTexts summaries;
  store.provideTexts(labels, summaries);
  for (const auto& preference : store.registrationOrder()) {
    const bool shown =
        !preference->has(PreferenceFlags::Hidden) && !preference->has(PreferenceFlags::Private);
    EXPECT_TRUE(!shown || labels.count(preference->key()) == 1) << preference->key();
  }
  for (const auto& [id, label] : labels)
    EXPECT_TRUE(store.hasPreference(id) || id == "ButlerUpdateChannel") << id;
}

TEST(Preferences, TheInstanceIsMadeOnceAndServesAllThreads) {
  std::vector<std::thread> threads;
  std::vector<const Preferences*> seen(8);
  struct : IServerEventSink {
    void onPreferenceModified(const std::string&) override { ++calls; }
    std::atomic<int> calls{0};
  } static sink;  // outlives the bus
  for (std::size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&seen, i] {
      Preferences& store = Preferences::instance();
      seen[i] = &store;
      ServerEventManager::instance().subscribe(kPreferencesModifiedEvent, sink);
      for (std::int32_t round = 0; round < 200; ++round) {
        store.setIntValue("LogNumFiles", round);
        static_cast<void>(store.getInt("LogNumFiles"));
        static_cast<void>(store.getBool("LogVerbose"));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(sink.calls, 8 * 200);
  EXPECT_EQ(std::set<const Preferences*>(seen.begin(), seen.end()).size(), 1U);
  EXPECT_EQ(seen[0]->registrationOrder().size(), 175U);
  EXPECT_NE(dynamic_cast<const TestPreferences*>(seen[0]), nullptr);

  // The directories below follow the preference from now on.
  Preferences::instance().setStringValue("LocalAppDataPath", "elsewhere");
  EXPECT_EQ(FileUtils::applicationDataDirectory(), FileUtils::join("elsewhere", "Zarn Media Server"));
}

}  // namespace
}  // namespace zarn
