#include "prefs/preferences.h"

#include <sstream>

#include "prefs/test_preferences.h"
#include "prefs/value_text.h"
#include "support/test.h"
#ifdef _WIN32
#include "os/handles_win.h"
#include "prefs/win_preferences.h"
#include "util/string_utils.h"
#endif

namespace zarn::testing {
namespace {

struct RecordingSink final : IServerEventSink {
  void onPreferenceModified(const std::string& id) override {
    ids.push_back(id);
    if (onModified) onModified(id);
  }
  std::vector<std::string> ids;
  std::function<void(const std::string&)> onModified;
};

template <typename Store>
struct StoreTest : ::testing::Test {
  StoreTest() {
    events.subscribe(kPreferencesModifiedEvent, sink);
    store.registerCatalogue();
  }
  /// The defaults of one preference of each type.
  void expectDefaults() {
    EXPECT_TRUE(store.getBool("logDebug"));
    EXPECT_EQ(store.getString("TranscoderLogLevel"), "error");
    EXPECT_EQ(store.getInt("LogNumFiles"), 5);
    EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  }
  ServerEventManager events;
  RecordingSink sink;
  Store store{nullptr, events};
  RecordingLog log;
};

// Before anything asks for the instance: the tests of this program must not touch a real registry.
[[maybe_unused]] const bool onTestStore = (Preferences::useTestStore(true), true);

template <typename Default>
Preference make(Default defaultValue, const std::string& overrides) {
  const auto query = std::make_shared<QueryString>(overrides);
  return {"Id", defaultValue, PreferenceFlags::None, "general", "feature", "extra", query};
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
  EXPECT_THAT(log.texts(), ElementsAre(warning + "yes", warning + "1\\x0a2", warning + "1e"));
}

using PreferencesTest = StoreTest<TestPreferences>;

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
    expectDefaults();
  }
  EXPECT_FALSE(store.getBool("NoSuchPref"));
  EXPECT_EQ(store.getString("NoSuchPref"), "");
  EXPECT_TRUE(log.texts().empty());
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
  sink.onModified = [&](auto&) { static_cast<void>(store.getInt("b")); };  // a sink may read again
  store.setBoolValue("a", true);
  store.setStringValue("b", "");
  EXPECT_TRUE(store.removeValue("a"));
  EXPECT_FALSE(store.removeValue("a"));  // announced all the same
  EXPECT_THAT(sink.ids, ElementsAre("a", "b", "a", "a"));
}

TEST_F(PreferencesTest, ListingsDependOnSignInAndOnTheRequestsToken) {
  struct : PreferenceAccessCheck {
    bool allows(const Preference& preference) const override { return preference.key() == "account"; }
  } const check;
  const auto signIn = PreferenceFlags::RequiresSignIn;
  store.addPreference(std::make_shared<Preference>("account", true, signIn, "", "", "", nullptr));
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
  std::string calls;
  RecordingSink sinks[3];
  for (const char i : {'0', '1', '2'})
    sinks[i - '0'].onModified = [&, i](const std::string& id) { calls += id + i + " "; };
  sinks[0].onModified = [&, record = sinks[0].onModified](const std::string& id) {
    record(id);
    events.subscribe(kPreferencesModifiedEvent, sinks[1]);  // takes part from the next event on
    if (id != "outer") return;
    // From another thread: the lock is not held during delivery.
    std::thread([&] { events.notifyPreferencesModified("inner"); }).join();
  };
  for (const std::size_t i : {2U, 0U, 2U}) events.subscribe(kPreferencesModifiedEvent, sinks[i]);
  events.notifyPreferencesModified("outer");
  EXPECT_EQ(calls, "outer0 inner0 inner1 inner2 outer2 ");
}

TEST(Preferences, TheInstanceIsMadeOnceAndServesAllThreads) {
  const auto use = [] {
    Preferences& instance = Preferences::instance();
    for (std::int32_t round = 0; round < 200; ++round)
      EXPECT_TRUE(instance.setIntValue("LogNumFiles", round) && instance.getInt("LogNumFiles") >= 0);
    return dynamic_cast<TestPreferences*>(&instance);
  };
  std::vector<std::future<TestPreferences*>> threads(8);
  for (auto& thread : threads) thread = std::async(std::launch::async, use);
  TestPreferences* const instance = use();
  for (auto& thread : threads) EXPECT_EQ(thread.get(), instance);
  // The directories follow the preference from now on.
  instance->setStringValue("LocalAppDataPath", R"(C:\)");
  EXPECT_EQ(FileUtils::applicationDataDirectory(), FileUtils::join(R"(C:\)", "Zarn Media Server"));
}

#ifdef _WIN32
constexpr wchar_t kSandbox[] = L"Software\\ZarnPreferencesTest";
constexpr wchar_t kKey[] = L"Software\\Zarn, Inc.\\Zarn Media Server";

/// Type and bytes of a stored value; type 0 and nothing when there is none.
using Stored = std::pair<DWORD, std::string>;

Stored dword(DWORD value) {
  return {REG_DWORD, std::string(reinterpret_cast<const char*>(&value), sizeof(value))};
}

Stored text(std::wstring_view value, DWORD type = REG_SZ) {
  return {type, std::string(reinterpret_cast<const char*>(value.data()), value.size() * sizeof(wchar_t))};
}

/// The current user's hive is an empty sandbox while a test runs.
struct WinPreferencesTest : StoreTest<WinPreferences> {
  WinPreferencesTest() {
    RegDeleteTreeW(HKEY_CURRENT_USER, kSandbox);
    EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, kSandbox, sandbox.receive()), ERROR_SUCCESS);
    EXPECT_EQ(RegOverridePredefKey(HKEY_CURRENT_USER, sandbox.get()), ERROR_SUCCESS);
  }
  ~WinPreferencesTest() override {
    RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, kSandbox);
  }

  void put(const char* id, const Stored& value) {
    ASSERT_EQ(RegSetKeyValueW(sandbox.get(), kKey, StringUtils::utf8to16(id).c_str(), value.first,
                              value.second.data(), static_cast<DWORD>(value.second.size())),
              ERROR_SUCCESS);
  }
  Stored get(const char* id) {
    Stored value{REG_NONE, std::string(1024, '?')};
    DWORD size = 1024;
    const LSTATUS error = RegGetValueW(sandbox.get(), kKey, StringUtils::utf8to16(id).c_str(), RRF_RT_ANY,
                                       &value.first, value.second.data(), &size);
    value.second.resize(error == ERROR_SUCCESS ? size : 0);
    return value;
  }
  RegistryKey sandbox;
};

TEST_F(WinPreferencesTest, WritesCreateTheKeyAndAreAnnouncedOnce) {
  expectDefaults();  // with no key at all
  EXPECT_FALSE(store.removeValue("LogVerbose"));
  const std::string path = "D:\\Caf\xC3\xA9";
  EXPECT_TRUE(store.setStringValue("LocalAppDataPath", path));
  EXPECT_TRUE(store.setValue("LogVerbose", "TRUE"));
  EXPECT_TRUE(store.setIntValue("LogNumFiles", -2));
  EXPECT_TRUE(store.setDoubleValue("TranscoderH264MinimumCRF", 0.5));
  EXPECT_EQ(get("LocalAppDataPath"), text(L"D:\\Caf\u00E9\0"s));
  EXPECT_EQ(get("LogVerbose"), dword(1));
  EXPECT_EQ(get("LogNumFiles"), dword(0xFFFFFFFE));
  EXPECT_EQ(get("TranscoderH264MinimumCRF"), Stored(REG_BINARY, "\0\0\0\0\0\0\xE0\x3F"s));
  EXPECT_EQ(store.getString("LocalAppDataPath"), path);
  EXPECT_EQ(store.getInt("LogNumFiles"), -2);
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 0.5);
  EXPECT_TRUE(store.setValue("LogVerbose", ""));
  // A text that is no UTF-8 does not become an empty value, nor the key's unnamed one.
  EXPECT_FALSE(store.setStringValue("ArticleStrings", "\xC3("));
  EXPECT_FALSE(store.setBoolValue("\xC3(", true));
  for (const char* id : {"LogVerbose", "ArticleStrings", ""}) EXPECT_EQ(get(id), Stored()) << id;
  EXPECT_THAT(sink.ids, ElementsAre("LocalAppDataPath", "LogVerbose", "LogNumFiles",
                                    "TranscoderH264MinimumCRF", "LogVerbose"));
}

TEST_F(WinPreferencesTest, AWrongTypeIsAMissingValue) {
  const Stored longText = text(L"longer than any number\0"s);
  for (const auto& [number, wide, characters] :
       {std::tuple{text(L"7\0"s), longText, dword(0x41)},
        {Stored(REG_BINARY, "abcd"), Stored(REG_QWORD, "12345678"), text(L"%TEMP%\0"s, REG_EXPAND_SZ)},
        {Stored(REG_DWORD, "ab"), Stored(REG_BINARY, "1234"), text(L"a\0\0"s, REG_MULTI_SZ)}}) {
    for (const char* id : {"logDebug", "LogNumFiles"}) put(id, number);
    put("TranscoderH264MinimumCRF", wide);
    put("TranscoderLogLevel", characters);
    expectDefaults();
  }
  EXPECT_TRUE(log.texts().empty());
  // One of the right type that is too long is no missing value.
  const std::string store_ = "WinPreferences::", failed = " - GetRegistryValue for ";
  for (const char* id : {"logDebug", "LogNumFiles"}) put(id, {REG_DWORD, "12345"});
  put("TranscoderH264MinimumCRF", {REG_BINARY, "123456789"});
  expectDefaults();
  EXPECT_THAT(
      log.texts(),
      ElementsAre(store_ + "getBoolValueWithDefault" + failed + "logDebug failed: 0xea",
                  store_ + " getIntValueWithDefault" + failed + "LogNumFiles failed: 0xea",
                  store_ + " getDoubleValueWithDefault" + failed + "TranscoderH264MinimumCRF failed: 0xea"));
}

TEST_F(WinPreferencesTest, OddButReadableValues) {
  put("LogVerbose", dword(7));
  put("LocalAppDataPath", text(L"unterminated"));
  put("ArticleStrings", text(L"one\0two\0"s));
  put("TranscoderLogLevel", {REG_SZ, "a\0b"s});  // half a character at its end
  EXPECT_TRUE(store.getBool("LogVerbose"));
  EXPECT_EQ(store.getString("LocalAppDataPath") + store.getString("ArticleStrings"), "unterminatedone");
  EXPECT_EQ(store.getString("TranscoderLogLevel"), "ab");
}

TEST_F(WinPreferencesTest, ATextThatGrowsMeanwhileIsRead) {
  put("LocalAppDataPath", text(L"x\0"s));
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (std::size_t length = 300; !done; length = length % 9000 + 300)
      put("LocalAppDataPath", text(std::wstring(length, L'x')));
  });
  for (int i = 0; i < 3000; ++i) EXPECT_THAT(store.getString("LocalAppDataPath"), MatchesRegex("x+"));
  done = true;
  writer.join();
  EXPECT_TRUE(log.texts().empty());
}
#endif

}  // namespace
}  // namespace zarn::testing
