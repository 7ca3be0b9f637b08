#include "prefs/win_preferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "prefs/preferences_fixture.h"
#include "prefs/preferences_platform.h"
#include "support/recording_log.h"
#include "util/string_utils.h"
#include "util/windows_handles.h"

namespace zarn {
namespace {

using ::testing::ElementsAre;
using testing::Ids;
using ::testing::IsEmpty;
using testing::LoggedLine;
using testing::RecordingLog;

constexpr wchar_t kSandbox[] = L"Software\\ZarnPreferencesTest";
constexpr wchar_t kKey[] = L"Software\\Zarn, Inc.\\Zarn Media Server";

struct StoredValue {
  DWORD type = REG_NONE;
  std::vector<BYTE> bytes;
  friend bool operator==(const StoredValue&, const StoredValue&) = default;
};

StoredValue dword(DWORD value) {
  StoredValue stored{REG_DWORD, std::vector<BYTE>(sizeof(value))};
  std::memcpy(stored.bytes.data(), &value, sizeof(value));
  return stored;
}

StoredValue text(DWORD type, std::wstring_view value) {
  StoredValue stored{type, std::vector<BYTE>(value.size() * sizeof(wchar_t))};
  std::memcpy(stored.bytes.data(), value.data(), stored.bytes.size());
  return stored;
}

/// The current user's hive is an empty sandbox while a test runs.
class WinPreferencesTest : public ::testing::Test {
 protected:
  WinPreferencesTest() {
    RegDeleteTreeW(HKEY_CURRENT_USER, kSandbox);
    EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, kSandbox, sandbox.receive()), ERROR_SUCCESS);
    EXPECT_EQ(RegOverridePredefKey(HKEY_CURRENT_USER, sandbox.get()), ERROR_SUCCESS);
    store.registerCatalogue();
  }
  ~WinPreferencesTest() override {
    RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, kSandbox);
  }

  RegistryKey open() {
    RegistryKey key;
    RegOpenKeyExW(sandbox.get(), kKey, 0, KEY_READ, key.receive());
    return key;
  }
  void put(const char* id, const StoredValue& value) {
    RegistryKey key;
    ASSERT_EQ(RegCreateKeyW(sandbox.get(), kKey, key.receive()), ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExW(key.get(), StringUtils::utf8to16(id).c_str(), 0, value.type, value.bytes.data(),
                             static_cast<DWORD>(value.bytes.size())),
              ERROR_SUCCESS);
  }
  StoredValue get(const char* id) {
    StoredValue value{REG_NONE, std::vector<BYTE>(1024)};
    DWORD size = 1024;
    const RegistryKey key = open();
    const std::wstring name = StringUtils::utf8to16(id);
    if (RegQueryValueExW(key.get(), name.c_str(), nullptr, &value.type, value.bytes.data(), &size) !=
        ERROR_SUCCESS) {
      return {};
    }
    value.bytes.resize(size);
    return value;
  }

  RegistryKey sandbox;
  testing::RecordingBus bus;
  WinPreferences store{nullptr, bus.events};
  RecordingLog log;
};

TEST_F(WinPreferencesTest, WithoutAKeyReadsAreSilentDefaults) {
  EXPECT_EQ(store.getInt("LogNumFiles"), 5);
  EXPECT_TRUE(store.getBool("logDebug"));
  EXPECT_EQ(store.getString("TranscoderLogLevel"), "error");
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  EXPECT_FALSE(open());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WinPreferencesTest, WritesCreateTheKeyAndAreAnnouncedOnce) {
  const std::string path = "D:\\Caf\xC3\xA9";
  EXPECT_TRUE(store.setStringValue("LocalAppDataPath", path));
  EXPECT_EQ(get("LocalAppDataPath"), text(REG_SZ, std::wstring_view(L"D:\\Caf\u00E9\0", 8)));
  EXPECT_EQ(store.getString("LocalAppDataPath"), path);
  EXPECT_EQ(bus.sink.ids, (Ids{"LocalAppDataPath"}));

  EXPECT_TRUE(store.setValue("LogVerbose", "TRUE"));
  EXPECT_EQ(get("LogVerbose"), dword(1));
  EXPECT_TRUE(store.setValue("LogVerbose", "yes"));
  EXPECT_EQ(get("LogVerbose"), dword(0));
  EXPECT_TRUE(store.setValue("LogVerbose", ""));
  EXPECT_EQ(get("LogVerbose"), StoredValue{});
  EXPECT_TRUE(store.setIntValue("LogNumFiles", -2));
  EXPECT_EQ(get("LogNumFiles"), dword(0xFFFFFFFE));
  EXPECT_EQ(store.getInt("LogNumFiles"), -2);
  EXPECT_TRUE(store.setDoubleValue("TranscoderH264MinimumCRF", 0.5));
  EXPECT_EQ(get("TranscoderH264MinimumCRF"), (StoredValue{REG_BINARY, {0, 0, 0, 0, 0, 0, 0xE0, 0x3F}}));
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 0.5);
  EXPECT_TRUE(store.setStringValue("ArticleStrings", ""));
  EXPECT_EQ(get("ArticleStrings"), text(REG_SZ, std::wstring_view(L"\0", 1)));
  EXPECT_EQ(store.getString("ArticleStrings"), "");
  EXPECT_EQ(bus.sink.ids.size(), 7U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WinPreferencesTest, FailedWritesAreSilent) {
  EXPECT_FALSE(store.removeValue("LogVerbose"));  // with no key, then with one
  EXPECT_TRUE(store.setBoolValue("logDebug", false));
  EXPECT_FALSE(store.removeValue("LogVerbose"));
  EXPECT_EQ(bus.sink.ids, (Ids{"logDebug"}));
  EXPECT_THAT(log.lines(), IsEmpty());
  // A text that is no UTF-8 does not become an empty value, nor the key's unnamed one.
  EXPECT_FALSE(store.setStringValue("LocalAppDataPath", "\xC3("));
  EXPECT_FALSE(store.setBoolValue("\xC3(", true));
  EXPECT_FALSE(store.getBool("\xC3("));
  EXPECT_EQ(get("LocalAppDataPath"), StoredValue{});
  EXPECT_EQ(get(""), StoredValue{});
  EXPECT_EQ(bus.sink.ids.size(), 1U);
}

TEST_F(WinPreferencesTest, AWrongTypeIsAMissingValue) {
  put("LocalAppDataPath", text(REG_EXPAND_SZ, std::wstring_view(L"%TEMP%\0", 7)));
  put("TranscoderLogLevel", dword(1));
  put("ArticleStrings", {REG_BINARY, {'a', 0, 0, 0}});
  put("logDebug", text(REG_SZ, std::wstring_view(L"a text of more than four bytes\0", 31)));
  put("AwayModeSupported", {REG_BINARY, {0, 0, 0, 0}});
  put("LogNumFiles", text(REG_SZ, std::wstring_view(L"7\0", 2)));
  put("ButlerEndHour", {REG_DWORD, {7, 0}});  // too short to be a number
  put("TranscoderH264MinimumCRF", {REG_QWORD, std::vector<BYTE>(8)});
  EXPECT_EQ(store.getString("LocalAppDataPath"), "");
  EXPECT_EQ(store.getString("TranscoderLogLevel"), "error");
  EXPECT_EQ(store.getString("ArticleStrings"), "the,das,der,a,an,el,la");
  EXPECT_TRUE(store.getBool("logDebug"));
  EXPECT_TRUE(store.getBool("AwayModeSupported"));
  EXPECT_EQ(store.getInt("LogNumFiles"), 5);
  EXPECT_EQ(store.getInt("ButlerEndHour"), 5);
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  put("TranscoderH264MinimumCRF", {REG_BINARY, {1, 2, 3, 4}});
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WinPreferencesTest, OddButReadableValues) {
  put("logDebug", dword(7));
  put("LocalAppDataPath", text(REG_SZ, L"unterminated"));
  put("ArticleStrings", text(REG_SZ, std::wstring_view(L"one\0two\0", 8)));
  put("TranscoderLogLevel", {REG_SZ, {'a', 0, 'b'}});  // half a character at its end
  EXPECT_TRUE(store.getBool("logDebug"));
  EXPECT_EQ(store.getString("LocalAppDataPath"), "unterminated");
  EXPECT_EQ(store.getString("ArticleStrings"), "one");
  EXPECT_EQ(store.getString("TranscoderLogLevel"), "ab");
}

TEST_F(WinPreferencesTest, OtherErrorsAreLogged) {
  // The hive is a key that has been deleted: everything answers error 1018.
  RegistryKey doomed;
  ASSERT_EQ(RegCreateKeyW(sandbox.get(), L"doomed", doomed.receive()), ERROR_SUCCESS);
  ASSERT_EQ(RegDeleteKeyW(sandbox.get(), L"doomed"), ERROR_SUCCESS);
  ASSERT_EQ(RegOverridePredefKey(HKEY_CURRENT_USER, doomed.get()), ERROR_SUCCESS);
  EXPECT_TRUE(store.getBool("logDebug"));
  EXPECT_EQ(store.getString("TranscoderLogLevel"), "error");
  EXPECT_EQ(store.getInt("LogNumFiles"), 5);
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  const auto error = [](const std::string& message) { return LoggedLine{LogLevel::Error, message}; };
  EXPECT_THAT(
      log.lines(),
      ElementsAre(
          error("WinPreferences::getBoolValueWithDefault - GetRegistryValue for logDebug failed: 0x3fa"),
          error("WinPreferences::getStringValueWithDefault - GetRegistryValue for TranscoderLogLevel failed: "
                "0x3fa"),
          error("WinPreferences:: getIntValueWithDefault - GetRegistryValue for LogNumFiles failed: 0x3fa"),
          error("WinPreferences:: getDoubleValueWithDefault - GetRegistryValue for TranscoderH264MinimumCRF "
                "failed: "
                "0x3fa")));
  log.clear();
  EXPECT_FALSE(store.setIntValue("LogNumFiles", 1));
  EXPECT_THAT(bus.sink.ids, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(WinPreferences, AreThePlatformsStore) {
  EXPECT_NE(dynamic_cast<WinPreferences*>(platform::makePreferences().get()), nullptr);
}

}  // namespace
}  // namespace zarn
