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
  ASSERT_EQ(store.registrationOrder().size(), 175U);
  std::set<std::string> ids;
  for (const auto& preference : store.registrationOrder()) {
    ids.insert(preference->key());
    EXPECT_TRUE(store.hasPreference(preference->key()));
    EXPECT_EQ(preference->extra(), "");
  }
  EXPECT_EQ(ids.size(), 175U);
  EXPECT_EQ(store.registrationOrder().front()->key(), "FriendlyName");
  EXPECT_EQ(store.registrationOrder().back()->key(), "EnableDatabaseTrace");
  EXPECT_TRUE(store.hasPreference("UniveralMetadataProviderUrl"));
}

TEST_F(PreferencesTest, TheRowsThatOthersRelyOn) {
  // identifier, type, default, flags, group
  const char* const rows[] = {
      "LocalAppDataPath text [] 4 []",     "AwayModeSupported bool [1] 2 [general]",
      "TLSKeyLogPath text [] 1 [network]", "ZarnOnlineToken text [] 1 []",
      "ZarnOnlineUsername text [] 1 []",   "logDebug bool [1] 2 [general]",
      "LogVerbose bool [0] 2 [general]",   "LogNumFiles int [5] 1 []",
      "LogTokensForDebug bool [0] 4 []",   "LogMemoryUse bool [0] 4 []",
      "LogSynchronous bool [0] 4 []",
  };
  for (const std::string row : rows) {
    const auto preference = store.findPreference(row.substr(0, row.find(' ')));
    ASSERT_NE(preference, nullptr) << row;
    preference->fillAttributes(store);
    const auto& attributes = preference->attributes();
    EXPECT_EQ(
        formatPrintf("%s %s [%s] %d [%s]", preference->key(), attributes.at("type"), attributes.at("value"),
                     static_cast<int>(preference->flags()), preference->group()),
        row);
    EXPECT_EQ(attributes.at("default"), attributes.at("value"));
  }
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
  EXPECT_TRUE(store.setValue("LogVerbose", "TRUE"));
  EXPECT_TRUE(store.getBool("LogVerbose"));
  EXPECT_TRUE(store.setValue("LogVerbose", "yes"));
  EXPECT_EQ(store.getStringValueWithDefault("LogVerbose", "?"), "0");
  EXPECT_TRUE(store.setValue("LogVerbose", "1"));
  EXPECT_TRUE(store.getBool("LogVerbose"));
  EXPECT_TRUE(store.setValue("LogVerbose", "01"));
  EXPECT_FALSE(store.getBool("LogVerbose"));
  EXPECT_TRUE(store.setValue("LogVerbose", ""));  // removes
  EXPECT_EQ(store.getStringValueWithDefault("LogVerbose", "?"), "?");
  EXPECT_FALSE(store.setValue("LogVerbose", ""));
  EXPECT_TRUE(store.setValue("LogNumFiles", "-3"));
  EXPECT_EQ(store.getInt("LogNumFiles"), -3);
  EXPECT_TRUE(store.setValue("TranscoderH264MinimumCRF", "0.1"));
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 0.1);
  EXPECT_TRUE(store.setValue("LocalAppDataPath", "D:\\Data"));
  EXPECT_EQ(store.getString("LocalAppDataPath"), "D:\\Data");

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
  for (const auto& [id, flags] :
       std::vector<std::pair<const char*, PreferenceFlags>>{{"z", PreferenceFlags::None},
                                                            {"private", PreferenceFlags::Private},
                                                            {"account", PreferenceFlags::RequiresSignIn},
                                                            {"a", PreferenceFlags::Hidden}}) {
    store.addPreference(std::make_shared<Preference>(id, true, flags, "", "", "", Preference::Overrides()));
  }
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

TEST_F(PreferencesTest, DisplayTexts) {
  PreferenceTexts labels;
  PreferenceTexts summaries;
  store.provideTexts(labels, summaries);
  EXPECT_EQ(labels["FriendlyName"], "Friendly name");
  EXPECT_EQ(labels["ButlerUpdateChannel"], "Server update Channel");
  EXPECT_EQ(summaries["FSEventLibraryUpdatesEnabled"],
            "Your library will be updated automatically when changes to library folders are detected.");
  // Nobody should see an identifier instead of a label, nor a label of nothing.
  for (const auto& preference : store.registrationOrder()) {
    const bool shown =
        !preference->has(PreferenceFlags::Hidden) && !preference->has(PreferenceFlags::Private);
    EXPECT_TRUE(!shown || labels.count(preference->key()) == 1) << preference->key();
  }
  for (const auto& [id, label] : labels)
    EXPECT_TRUE(store.hasPreference(id) || id == "ButlerUpdateChannel") << id;

  const std::string ids[] = {"TranscoderLogLevel", "NoSuchPref"};
  store.resolveTexts(ids);
  EXPECT_EQ(store.findPreference(ids[0])->enumValues(),
            "quiet:Quiet|panic:Panic|fatal:Fatal|error:Error|warning:Warning|info:Info|verbose:Verbose|debug:"
            "Debug");
  EXPECT_THAT(log.texts(), ElementsAre("Invalid preference 'NoSuchPref' referenced."));

  // Only with no channels known does the stored one stand alone.
  store.setStringValue("ButlerUpdateChannel", "8");
  const PreferenceChoice known[] = {{"16", "Public"}};
  EXPECT_THAT(store.choices("ButlerUpdateChannel", known), ElementsAre(known[0]));
  EXPECT_THAT(store.choices("ButlerUpdateChannel"), ElementsAre(PreferenceChoice("8", "unknown")));
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
