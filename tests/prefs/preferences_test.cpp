#include "prefs/preferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <thread>

#include "prefs/preferences_fixture.h"
#include "prefs/test_preferences.h"
#include "prefs/value_text.h"
#include "support/recording_log.h"
#include "util/file_utils.h"

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

// Before anything asks for the instance: the tests of this program must not touch a real registry.
[[maybe_unused]] const bool onTestStore = (Preferences::useTestStore(true), true);

template <typename Default>
Preference make(Default defaultValue, const std::string& overrides) {
  const auto query = std::make_shared<QueryString>(overrides);
  return {"Id", defaultValue, PreferenceFlags::None, "general", "feature", "extra", query};
}

TEST(QueryString, DecodesKeysAndValues) {
  const QueryString query("a=1&a=2&%62=x%2By+z%2f%2F&c&=lost&&e=100%&f=%4&g=%zz%-1&h=p=q");
  for (const auto& [key, value] : {std::pair{"a", "1"},
                                   {"b", "x+y z//"},
                                   {"c", ""},
                                   {"e", "100%"},
                                   {"f", "%4"},
                                   {"g", "%zz%-1"},
                                   {"h", "p=q"}}) {
    ASSERT_NE(query.find(key), nullptr) << key;
    EXPECT_EQ(*query.find(key), value) << key;
  }
  EXPECT_EQ(query.find(""), nullptr);
}

TEST(ValueText, Numbers) {
  EXPECT_EQ(parseInt("-2147483648"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(parseInt("+7"), 7);
  for (const char* text : {"", "+", "+-1", "2147483648", "12abc", " 1", "1 ", "0x10", "1.0"})
    EXPECT_FALSE(parseInt(text)) << text;
  for (const char* text : {"nan", "-nan", "INFINITY", "-inf", "1e3", "-.5", "2."})
    EXPECT_TRUE(parseDouble(text)) << text;
  for (const char* text :
       {"", "Nan", "INF", "nan(1)", "infinit", "1e", "e", "1e+", "+-1", " 1", "1 ", "0x1", "1e999", "1,5"})
    EXPECT_FALSE(parseDouble(text)) << text;
  EXPECT_EQ(doubleText(0.1), "0.10000000000000001");
  EXPECT_EQ(doubleText(16.0), "16");
}

TEST(Preference, OverridesOfTheRightKindReplaceTheDefault) {
  const RecordingLog log;
  EXPECT_TRUE(make(false, "Id=TRUE").defaultAsBool());
  EXPECT_FALSE(make(true, "Id=False").defaultAsBool());
  EXPECT_EQ(make("compiled", "Id=a%20b%2Fc").defaultAsText(), "a b/c");
  EXPECT_EQ(make(5, "Id=%2B007").defaultAsInt(), 7);
  EXPECT_EQ(make(1.5, "Id=2.5e1").defaultAsDouble(), 25.0);
  // Empty ones, and those of other identifiers, do not.
  EXPECT_EQ(make(5, "Id=").defaultAsInt(), 5);
  EXPECT_EQ(make("compiled", "id=other").defaultAsText(), "compiled");
  EXPECT_TRUE(log.texts().empty());
  // Those of the wrong kind are reported, each on one line.
  EXPECT_TRUE(make(true, "Id=yes").defaultAsBool());
  EXPECT_EQ(make(5, "Id=1%0A2").defaultAsInt(), 5);
  EXPECT_EQ(make(1.5, "Id=1e").defaultAsDouble(), 1.5);
  const std::string warning = "Preferences: invalid default value: Id=";
  EXPECT_THAT(log.texts(), ::testing::ElementsAre(warning + "yes", warning + "1\\x0a2", warning + "1e"));
}

class PreferencesTest : public ::testing::Test {
 protected:
  PreferencesTest() { store.registerCatalogue(); }

  RecordingBus bus;
  TestPreferences store{nullptr, bus.events};
  RecordingLog log;
};

TEST_F(PreferencesTest, TheCatalogueHasTheRowsThatThisProgramOrOthersRelyOn) {
  store.registerCatalogue();  // again: adds nothing
  EXPECT_EQ(store.registrationOrder().size(), 175U);
  // Identifier, type, flags, group and default.
  std::istringstream rows(
      "LocalAppDataPath text 4  |AwayModeSupported bool 2 general 1|TLSKeyLogPath text 1 network |"
      "ZarnOnlineToken text 1  |ZarnOnlineUsername text 1  |logDebug bool 2 general 1|"
      "LogVerbose bool 2 general 0|LogNumFiles int 1  5|LogTokensForDebug bool 4  0|LogMemoryUse bool 4  0|"
      "LogSynchronous bool 4  0|OnDeckLimit int 2 library 40|MusicSeparateAlbumTypes text 2 library enabled|"
      "ArticleStrings text 4  the,das,der,a,an,el,la|TranscoderVideoResolutionLimit text 4  0x0|"
      "SetupLanguageCode int 4  1033|TranscoderStreamingBufferSize int 4 general 4194304|"
      "TranscoderLogLevel text 4 transcoder error|TranscoderH264MinimumCRF double 4 transcoder 16|"
      "ButlerStartHour int 0 butler 2|ButlerEndHour int 0 butler 5|AnonymousMachineIdentifier text 1  ");
  for (std::string row; std::getline(rows, row, '|');) {
    const auto preference = store.findPreference(row.substr(0, row.find(' ')));
    ASSERT_NE(preference, nullptr) << row;
    preference->fillAttributes(store);
    const auto attribute = [&](auto name) { return " " + preference->attributes().find(name)->second; };
    const std::string flags = std::to_string(static_cast<std::uint32_t>(preference->flags()));
    EXPECT_EQ(
        row, preference->key() + attribute("type") + " " + flags + attribute("group") + attribute("default"));
  }
}

TEST_F(PreferencesTest, AnElementTellsAllOfAPreference) {
  store.resolveTexts(std::vector<std::string>{"NoSuchPref", "LocationVisibility"});
  store.setStringValue("FriendlyName", "<\"&\n>");
  ElementWriter writer;
  for (const char* id : {"FriendlyName", "LocationVisibility"}) {
    store.findPreference(id)->fillAttributes(store);
    EXPECT_EQ(store.findPreference(id)->serialize(writer), "");
  }
  EXPECT_EQ(writer.text(), R"(<Setting advanced="0" default="" group="general" hidden="0" id="FriendlyName")"
                           R"( label="" summary="" type="text" value="&lt;&quot;&amp;&#10;&gt;" />
<Setting advanced="1" default="1" enumValues="0:Nobody|1:Everyone" group="library" hidden="0")"
                           R"( id="LocationVisibility" label="Location visibility")"
                           R"( summary="Whether photos show where they were taken." type="int" value="1" />
)");
  EXPECT_THAT(log.texts(), ElementsAre("Invalid preference 'NoSuchPref' referenced."));
}

TEST_F(PreferencesTest, ReadsFallBackSilently) {
  for (const char* const text : {"", "yes", "7 ", "1e"}) {
    for (const char* id : {"logDebug", "LogNumFiles", "TranscoderH264MinimumCRF"})
      store.setStringValue(id, text);
    EXPECT_TRUE(store.getBool("logDebug"));
    EXPECT_EQ(store.getInt("LogNumFiles"), 5);
    EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  }
  EXPECT_FALSE(store.getBool("NoSuchPref"));
  EXPECT_EQ(store.getString("NoSuchPref"), "");
  EXPECT_THAT(log.lines(), ::testing::IsEmpty());
}

TEST_F(PreferencesTest, SetValueConvertsToTheType) {
  const auto stored = [&](const char* id, const char* text) {
    EXPECT_TRUE(store.setValue(id, text));
    return store.getStringValueWithDefault(id, "removed");
  };
  EXPECT_EQ(stored("LogVerbose", "TRUE") + stored("LogVerbose", "yes") + stored("LogVerbose", "1"), "101");
  EXPECT_EQ(stored("LogVerbose", ""), "removed");
  EXPECT_EQ(stored("TranscoderH264MinimumCRF", "0.1"), "0.10000000000000001");
  EXPECT_EQ(stored("LocalAppDataPath", "D:\\") + stored("LogNumFiles", "-3"), "D:\\-3");
  EXPECT_THROW(store.setValue("LogNumFiles", "12abc"), ConversionError);
  EXPECT_THROW(store.setValue("TranscoderH264MinimumCRF", "wide"), ConversionError);
  EXPECT_FALSE(store.setValue("NoSuchPref", "1"));
  EXPECT_THAT(log.texts(), ElementsAre("Preferences: cannot find unknown pref NoSuchPref"));
}

TEST_F(PreferencesTest, EveryWriteIsAnnouncedOnce) {
  bus.sink.onModified = [&](auto&) { static_cast<void>(store.getInt("b")); };  // a sink may read again
  store.setBoolValue("a", true);
  store.setStringValue("b", "");
  EXPECT_TRUE(store.removeValue("a"));
  EXPECT_FALSE(store.removeValue("a"));  // announced all the same
  EXPECT_THAT(bus.sink.ids, ElementsAre("a", "b", "a", "a"));
}

TEST_F(PreferencesTest, ListingsDependOnSignInAndOnTheRequestsToken) {
  struct : PreferenceAccessCheck {
    bool allows(const Preference& preference) const override { return preference.key() == "account"; }
  } const check;
  store.addPreference(std::make_shared<Preference>("account", true, PreferenceFlags::RequiresSignIn, "", "",
                                                   "", Preference::Overrides()));
  const auto count = [&](const PreferenceListRequest& request) {
    std::vector<std::shared_ptr<Preference>> found;
    store.listPreferences(request, found);
    return found.size();
  };
  const std::size_t signedOut = count({});
  const auto isPrivate = [](const auto& row) { return row.flags == PreferenceFlags::Private; };
  EXPECT_EQ(signedOut, 175U - static_cast<std::size_t>(std::ranges::count_if(catalogue::kRows, isPrivate)));
  store.setStringValue("ZarnOnlineToken", "t");
  EXPECT_EQ(count({{}, {}, &check}), signedOut + 1) << "the check is for requests that carry a token";
  EXPECT_EQ(count({{{"x-zarn-token", "t"}}, {}, &check}), 1U);
  EXPECT_EQ(count({{}, {{"X-Zarn-Token", ""}}, &check}), 1U);
}

TEST(ServerEventManager, CallsSinksInTheOrderOfTheirAddressesAndMayBeUsedByThem) {
  ServerEventManager events;
  std::vector<std::string> calls;
  RecordingSink sinks[3];
  for (std::size_t i = 0; i < 3; ++i) {
    sinks[i].onModified = [&, i](const std::string& id) { calls.push_back(id + std::to_string(i)); };
  }
  sinks[0].onModified = [&, record = sinks[0].onModified](const std::string& id) {
    record(id);
    events.subscribe(kPreferencesModifiedEvent, sinks[1]);  // takes part from the next event on
    if (id != "outer") return;
    // From another thread: the lock is not held during delivery.
    std::thread([&] { events.notifyPreferencesModified("inner"); }).join();
  };
  for (const std::size_t i : {2U, 0U, 2U}) events.subscribe(kPreferencesModifiedEvent, sinks[i]);
  events.notifyPreferencesModified("outer");
  EXPECT_EQ(calls, (std::vector<std::string>{"outer0", "inner0", "inner1", "inner2", "outer2"}));
}

TEST(Preferences, TheInstanceIsMadeOnceAndServesAllThreads) {
  std::vector<std::thread> threads;
  std::vector<Preferences*> seen(8);
  for (auto& instance : seen) {
    threads.emplace_back([&instance] {
      instance = &Preferences::instance();
      for (std::int32_t round = 0; round < 200; ++round) {
        instance->setIntValue("LogNumFiles", round);
        static_cast<void>(instance->getInt("LogNumFiles"));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(seen, ::testing::Each(seen[0]));
  EXPECT_NE(dynamic_cast<const TestPreferences*>(seen[0]), nullptr);
  // The directories follow the preference from now on.
  seen[0]->setStringValue("LocalAppDataPath", R"(C:\)");
  EXPECT_EQ(FileUtils::applicationDataDirectory(), FileUtils::join(R"(C:\)", "Zarn Media Server"));
}

}  // namespace
}  // namespace zarn::testing
