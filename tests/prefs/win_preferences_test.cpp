#include "prefs/win_preferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "os/handles_win.h"
#include "prefs/preferences_fixture.h"
#include "support/recording_log.h"
#include "util/string_utils.h"

namespace zarn::testing {
namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
  /// The defaults of one preference of each type.
  void expectDefaults() {
    EXPECT_TRUE(store.getBool("logDebug"));
    EXPECT_EQ(store.getString("TranscoderLogLevel"), "error");
    EXPECT_EQ(store.getInt("LogNumFiles"), 5);
    EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  }

  RegistryKey sandbox;
  RecordingBus bus;
  WinPreferences store{nullptr, bus.events};
  RecordingLog log;
};

TEST_F(WinPreferencesTest, WritesCreateTheKeyAndAreAnnouncedOnce) {
  expectDefaults();  // with no key at all
  EXPECT_FALSE(store.removeValue("LogVerbose"));
  const std::string path = "D:\\Caf\xC3\xA9";
  EXPECT_TRUE(store.setStringValue("LocalAppDataPath", path));
  EXPECT_EQ(get("LocalAppDataPath"), text(L"D:\\Caf\u00E9\0"s));
  EXPECT_EQ(store.getString("LocalAppDataPath"), path);
  EXPECT_TRUE(store.setValue("LogVerbose", "TRUE"));
  EXPECT_EQ(get("LogVerbose"), dword(1));
  EXPECT_TRUE(store.setValue("LogVerbose", ""));
  EXPECT_EQ(get("LogVerbose"), Stored());
  EXPECT_TRUE(store.setIntValue("LogNumFiles", -2));
  EXPECT_EQ(get("LogNumFiles"), dword(0xFFFFFFFE));
  EXPECT_EQ(store.getInt("LogNumFiles"), -2);
  EXPECT_TRUE(store.setDoubleValue("TranscoderH264MinimumCRF", 0.5));
  EXPECT_EQ(get("TranscoderH264MinimumCRF"), Stored(REG_BINARY, "\0\0\0\0\0\0\xE0\x3F"s));
  EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 0.5);
  // A text that is no UTF-8 does not become an empty value, nor the key's unnamed one.
  EXPECT_FALSE(store.setStringValue("ArticleStrings", "\xC3("));
  EXPECT_FALSE(store.setBoolValue("\xC3(", true));
  EXPECT_EQ(get("ArticleStrings"), Stored());
  EXPECT_EQ(get(""), Stored());
  EXPECT_THAT(bus.sink.ids, ElementsAre("LocalAppDataPath", "LogVerbose", "LogVerbose", "LogNumFiles",
                                        "TranscoderH264MinimumCRF"));
}

TEST_F(WinPreferencesTest, AWrongTypeIsAMissingValue) {
  const Stored longText = text(L"longer than any number\0"s);
  for (const auto& [number, wide, characters] :
       {std::tuple{text(L"7\0"s), longText, dword(0x41)},
        {Stored(REG_BINARY, "abcd"), Stored(REG_QWORD, "12345678"), text(L"%TEMP%\0"s, REG_EXPAND_SZ)},
        {Stored(REG_DWORD, "ab"), Stored(REG_BINARY, "1234"), text(L"a\0\0"s, REG_MULTI_SZ)}}) {
    put("logDebug", number);
    put("LogNumFiles", number);
    put("TranscoderH264MinimumCRF", wide);
    put("TranscoderLogLevel", characters);
    expectDefaults();
  }
  EXPECT_THAT(log.lines(), IsEmpty());
  // One of the right type that is too long is no missing value.
  const std::string failed = " - GetRegistryValue for ";
  put("logDebug", {REG_DWORD, "12345"});
  put("LogNumFiles", {REG_DWORD, "12345"});
  put("TranscoderH264MinimumCRF", {REG_BINARY, "123456789"});
  expectDefaults();
  EXPECT_THAT(log.texts(),
              ElementsAre("WinPreferences::getBoolValueWithDefault" + failed + "logDebug failed: 0xea",
                          "WinPreferences:: getIntValueWithDefault" + failed + "LogNumFiles failed: 0xea",
                          "WinPreferences:: getDoubleValueWithDefault" + failed +
                              "TranscoderH264MinimumCRF failed: 0xea"));
}

TEST_F(WinPreferencesTest, OddButReadableValues) {
  put("LogVerbose", dword(7));
  put("LocalAppDataPath", text(L"unterminated"));
  put("ArticleStrings", text(L"one\0two\0"s));
  put("TranscoderLogLevel", {REG_SZ, "a\0b"s});  // half a character at its end
  EXPECT_TRUE(store.getBool("LogVerbose"));
  EXPECT_EQ(store.getString("LocalAppDataPath"), "unterminated");
  EXPECT_EQ(store.getString("ArticleStrings"), "one");
  EXPECT_EQ(store.getString("TranscoderLogLevel"), "ab");
}

TEST_F(WinPreferencesTest, ATextThatGrowsMeanwhileIsRead) {
  const std::string grown(9000, 'x');
  put("LocalAppDataPath", text(L"short\0"s));
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (std::size_t length = 300; !done; length = length % 9000 + 300)
      put("LocalAppDataPath", text(std::wstring(length, L'x')));
  });
  for (int i = 0; i < 3000; ++i) {
    const std::string read = store.getString("LocalAppDataPath");
    EXPECT_TRUE(read == "short" || (!read.empty() && grown.starts_with(read))) << read.size();
  }
  done = true;
  writer.join();
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
}  // namespace zarn::testing
