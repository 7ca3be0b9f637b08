#include "prefs/win_preferences.h"

#include <atomic>
#include <thread>

#include "os/handles_win.h"
#include "prefs/preferences_fixture.h"
#include "util/string_utils.h"

namespace zarn::testing {
namespace {

using namespace std::string_literals;

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
  for (int i = 0; i < 3000; ++i)
    EXPECT_THAT(store.getString("LocalAppDataPath"), ::testing::MatchesRegex("x+"));
  done = true;
  writer.join();
  EXPECT_TRUE(log.texts().empty());
}

}  // namespace
}  // namespace zarn::testing
