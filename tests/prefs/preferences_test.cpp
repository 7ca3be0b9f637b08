#include "prefs/preferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST_F(PreferencesTest, TheRowsThatTheServiceReliesOn) {
  struct Expected {
    const char* id;
    PreferenceType type;
    const char* defaultText;
    std::uint32_t flags;
    const char* group;
  };
  using enum PreferenceType;
  const Expected table[] = {
      {"LocalAppDataPath", Text, "", 4, ""},
      {"AwayModeSupported", Bool, "1", 2, "general"},
      {"TLSKeyLogPath", Text, "", 1, "network"},
      {"ZarnOnlineToken", Text, "", 1, ""},
      {"ZarnOnlineUsername", Text, "", 1, ""},
      {"logDebug", Bool, "1", 2, "general"},
      {"LogVerbose", Bool, "0", 2, "general"},
      {"LogNumFiles", Int, "5", 1, ""},
      {"LogTokensForDebug", Bool, "0", 4, ""},
      {"LogMemoryUse", Bool, "0", 4, ""},
      {"LogSynchronous", Bool, "0", 4, ""},
      {"OnDeckLimit", Int, "40", 2, "library"},
      {"MusicSeparateAlbumTypes", Text, "enabled", 2, "library"},
      {"ArticleStrings", Text, "the,das,der,a,an,el,la", 4, ""},
      {"TranscoderVideoResolutionLimit", Text, "0x0", 4, ""},
      {"SetupLanguageCode", Int, "1033", 4, ""},
      {"TranscoderStreamingBufferSize", Int, "4194304", 4, "general"},
      {"TranscoderH264MinimumCRF", Double, "16", 4, "transcoder"},
      {"TranscoderLogLevel", Text, "error", 4, "transcoder"},
      {"ButlerStartHour", Int, "2", 0, "butler"},
      {"ButlerEndHour", Int, "5", 0, "butler"},
      {"AnonymousMachineIdentifier", Text, "", 1, ""},
  };
  for (const Expected& row : table) {
    const auto preference = store.findPreference(row.id);
    ASSERT_NE(preference, nullptr) << row.id;
    preference->fillAttributes(store);
    EXPECT_EQ(preference->type(), row.type) << row.id;
    EXPECT_EQ(preference->attributes().at("default"), row.defaultText) << row.id;
    EXPECT_EQ(preference->attributes().at("value"), row.defaultText) << row.id;
    EXPECT_EQ(static_cast<std::uint32_t>(preference->flags()), row.flags) << row.id;
    EXPECT_EQ(preference->group(), row.group) << row.id;
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
  store.setBoolValue("a", true);
  store.setIntValue("b", 1);
  store.setDoubleValue("c", 1);
  store.setStringValue("d", "");
  EXPECT_TRUE(store.removeValue("a"));
  EXPECT_FALSE(store.removeValue("a"));  // announced all the same
  EXPECT_EQ(bus.sink.ids, (Ids{"a", "b", "c", "d", "a", "a"}));
}

TEST_F(PreferencesTest, ASinkMayReadAndWrite) {
  struct Sink final : IServerEventSink {
    explicit Sink(Preferences& preferences) : store(preferences) {}
    void onPreferenceModified(const std::string& id) override {
      if (id == "LogVerbose" && store.getBool("LogVerbose")) store.setIntValue("LogNumFiles", 9);
    }
    Preferences& store;
  } sink(store);
  bus.events.subscribe(kPreferencesModifiedEvent, sink);
  store.setBoolValue("LogVerbose", true);
  EXPECT_EQ(store.getInt("LogNumFiles"), 9);
}

/// The base class with no store of its own.
class StorelessPreferences final : public Preferences {
 public:
  StorelessPreferences() : Preferences(nullptr) {}
  bool getBoolValueWithDefault(std::string_view, bool fallback) const override { return fallback; }
  std::string getStringValueWithDefault(std::string_view, std::string_view fallback) const override {
    return std::string(fallback);
  }
  std::int32_t getIntValueWithDefault(std::string_view, std::int32_t fallback) const override {
    return fallback;
  }
  double getDoubleValueWithDefault(std::string_view, double fallback) const override { return fallback; }
  bool removeValue(std::string_view) override { return false; }
};

TEST(StorelessPreferences, RefusesEveryWrite) {
  StorelessPreferences store;
  const RecordingLog log;
  EXPECT_FALSE(store.setStringValue("Id", "a\nb"));
  EXPECT_FALSE(store.setBoolValue("Id", true));
  EXPECT_FALSE(store.setIntValue("Id", -1));
  EXPECT_FALSE(store.setDoubleValue("Id", 0.5));
  const auto warning = [](const std::string& value) {
    return LoggedLine{LogLevel::Warn,
                      "WARNING: no platform-specific preference store, not setting Id to " + value};
  };
  EXPECT_THAT(log.lines(),
              ElementsAre(warning("a\\x0ab"), warning("true"), warning("-1"), warning("0.500000")));
}

TEST(Preferences, ASecondPreferenceOfTheSameNameReplacesTheFirst) {
  TestPreferences store(nullptr);
  for (const std::int32_t value : {1, 2}) {
    store.addPreference(std::make_shared<Preference>("Id", value, PreferenceFlags::None, "", "", "",
                                                     Preference::Overrides()));
  }
  EXPECT_EQ(store.getInt("Id"), 2);
  EXPECT_EQ(store.registrationOrder().size(), 2U);
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

/// Refuses one preference.
struct AllBut final : PreferenceAccessCheck {
  explicit AllBut(std::string id) : refused(std::move(id)) {}
  bool allows(const Preference& preference) const override { return preference.key() != refused; }
  std::string refused;
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
  const AllBut allBut("z");
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
  EXPECT_EQ(list({{}, {}, &allBut}), (Ids{"z", "account", "a"}));
  EXPECT_EQ(list({{{"x-zarn-token", "t"}}, {}, &allBut}), (Ids{"account", "a"}));
  EXPECT_EQ(list({{}, {{"X-Zarn-Token", ""}}, &allBut}), (Ids{"account", "a"}));
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

  const std::string ids[] = {"AugmentationProviderEnvironment", "NoSuchPref"};
  store.resolveTexts(ids);
  EXPECT_EQ(store.findPreference(ids[0])->enumValues(), "prod:Production|staging:Staging|dev:Dev");
  EXPECT_THAT(log.texts(), ElementsAre("Invalid preference 'NoSuchPref' referenced."));
}

TEST_F(PreferencesTest, Choices) {
  std::string levels;
  for (const auto& [value, label] : store.choices("TranscoderLogLevel")) levels += value + " ";
  EXPECT_EQ(levels, "quiet panic fatal error warning info verbose debug ");
  EXPECT_THAT(store.choices("FriendlyName"), IsEmpty());

  const PreferenceChoice known[] = {{"16", "Public"}};
  EXPECT_THAT(store.choices("ButlerUpdateChannel", known), ElementsAre(known[0]));
  EXPECT_THAT(log.lines(), IsEmpty());
  store.setStringValue("ButlerUpdateChannel", "8");
  EXPECT_THAT(store.choices("ButlerUpdateChannel"), ElementsAre(PreferenceChoice("8", "unknown")));
  EXPECT_THAT(log.lines(), ElementsAre(LoggedLine{
                               LogLevel::Warn,
                               "[Preferences] No update channels loaded, so showing the previously-selected "
                               "channel, labelled 'unknown' since we don't really know the name."}));
}

TEST(Preferences, TheInstanceIsMadeOnceAndServesAllThreads) {
  std::vector<std::thread> threads;
  std::vector<const Preferences*> seen(8);
  for (std::size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&seen, i] {
      Preferences& store = Preferences::instance();
      seen[i] = &store;
      for (std::int32_t round = 0; round < 200; ++round) {
        store.setIntValue("LogNumFiles", round);
        static_cast<void>(store.getInt("LogNumFiles"));
        static_cast<void>(store.getBool("LogVerbose"));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(std::set<const Preferences*>(seen.begin(), seen.end()).size(), 1U);
  EXPECT_EQ(seen[0]->registrationOrder().size(), 175U);
  EXPECT_NE(dynamic_cast<const TestPreferences*>(seen[0]), nullptr);

  // The directories below follow the preference from now on.
  Preferences::instance().setStringValue("LocalAppDataPath", "elsewhere");
  EXPECT_EQ(FileUtils::applicationDataDirectory(), FileUtils::join("elsewhere", "Zarn Media Server"));
}

}  // namespace
}  // namespace zarn
