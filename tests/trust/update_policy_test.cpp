#include "trust/update_policy.h"

#include "support/test.h"

#ifdef _WIN32
#include <windows.h>

#include "os/registry.h"
#include "util/product_names.h"
#include "util/string_utils.h"
#endif

namespace zarn::testing {
namespace {

constexpr ProductVersion kVersion{{7, 8, 9, 0}};

Stored<ProductVersion> version(const std::string& text) {
  return asVersion(Stored<std::string>(text));
}

TEST(UpdatePolicy, AStoredVersionIsFourNumbersAndNothingElse) {
  for (const auto* text : {"0.0.0.0", "7.8.9.0", "65535.65535.65535.65535"})
    EXPECT_EQ(versionText(std::get<ProductVersion>(version(text))), text);
  for (const auto* text :
       {"", "7", "7.8.9", "7.8.9.", "7.8.9.0.", "7.8.9.0.1", ".7.8.9.0", "7..9.0", "+7.8.9.0", "-7.8.9.0",
        " 7.8.9.0", "7.8.9.0 ", "7.8.9.65536", "7.8.9.x", "7,8,9,0"})
    EXPECT_EQ(std::get<Unreadable>(version(text)).reason, "\"" + std::string(text) + "\" is no version");
}

TEST(UpdatePolicy, EachRuleRefusesWhatItMustAndOneThatIsOffAsksForNothing) {
  const Unreadable broken{"broken"};
  const FileVersion zarn{"Zarn", "text", kVersion}, line{"Zarn\n", "", kVersion}, none;
  const FileVersion noNumber{"Zarn", "7.8.9.0", {}};
  const std::monostate missing;
  const std::string names = "its version resource names ";
  const std::string unread = "the value HighestInstalledVersion cannot be read: ";
  const std::string before = "its version 7.8.9.0 is lower than 7.8.9.1, which was installed before";
  const std::tuple<StoredPolicy, UpdatePolicy, FileVersion, std::string> table[] = {
      // No rule: nothing matters, not even what is stored beside it.
      {{missing, 0U, broken}, {}, none, ""},
      // The product.
      {{}, {"Zarn"}, zarn, ""},
      {{"Zarn"}, {"Other"}, zarn, ""},
      {{""}, {"Other"}, zarn, ""},
      {{"Other"}, {"Zarn"}, zarn, names + R"(the product "Zarn", and not "Other")"},
      {{"zarn"}, {}, zarn, names + R"(the product "Zarn", and not "zarn")"},
      {{"Zarn"}, {}, line, names + R"(the product "Zarn\x0a", and not "Zarn")"},
      {{"Zarn"}, {}, none, names + R"(no product, and not "Zarn")"},
      // The version.
      {{missing, 1U, missing}, {}, zarn, ""},
      {{missing, 1U, version("7.8.9.0")}, {}, zarn, ""},
      {{missing, 1U, version("7.8.8.65535")}, {}, zarn, ""},
      {{missing, 0U, version("9.0.0.0")}, {"", true}, zarn, ""},
      {{missing, missing, version("7.8.9.1")}, {"", true}, zarn, before},
      {{missing, 1U, version("7.8.9.0")}, {}, noNumber, "it has no version number"},
      {{missing, 1U, missing}, {}, none, "it has no version number"},
      // Both.
      {{"Zarn", 1U, version("7.8.9.1")}, {}, zarn, before},
      // What cannot be read.
      {{broken}, {}, zarn, "the value RequiredProduct cannot be read: broken"},
      {{missing, broken}, {}, zarn, "the value RefuseOlder cannot be read: broken"},
      {{missing, 1U, version("7\n")}, {}, zarn, unread + R"("7\x0a" is no version)"}};
  for (const auto& [stored, builtIn, bundle, refusal] : table) {
    const PolicyResult result = judgeByPolicy(stored, builtIn, [&read = bundle] { return read; });
    EXPECT_EQ(result.isAllowed() ? "" : result.sentence(), refusal);
  }
  const auto mustNotRead = []() -> FileVersion { throw std::logic_error("read"); };
  EXPECT_TRUE(judgeByPolicy({}, {}, mustNotRead).isAllowed());
}

TEST(UpdatePolicy, TheHighestVersionIsNeverLowered) {
  const Stored<ProductVersion> lower[] = {std::monostate(), ProductVersion{{7, 8, 8, 9}}};
  for (const auto& highest : lower) EXPECT_EQ(versionToRemember(highest, kVersion), "7.8.9.0");
  const Stored<ProductVersion> others[] = {kVersion, ProductVersion{{7, 8, 9, 1}}, Unreadable{"broken"}};
  for (const auto& highest : others) EXPECT_EQ(versionToRemember(highest, kVersion), std::nullopt);
}

#ifdef _WIN32
/// A program with a version resource, whoever made this system.
const std::string kBundle = "C:\\windows\\system32\\kernel32.dll";

struct MachinePolicy : ::testing::Test {
  MachinePolicy() { clear(); }
  ~MachinePolicy() override { clear(); }

  static void clear() {
    for (const auto* key : {names::kPolicyKey.wide, names::kServiceKey.wide})
      RegDeleteKeyW(HKEY_LOCAL_MACHINE, key);
  }
  static void store(const wchar_t* path, const wchar_t* name, DWORD type, const std::wstring& bytes) {
    const auto key = os::createRegistryKey(HKEY_LOCAL_MACHINE, path, KEY_SET_VALUE);
    ASSERT_TRUE(os::writeRegistryValue(key.value().get(), name, type, bytes.data(), 2 * bytes.size()));
  }
  /// Why the bundle is refused, as the log has it too; empty when it is allowed.
  static std::string refusal() {
    const RecordingLog log;
    const PolicyResult result = CheckUpdatePolicy(kBundle);
    const std::string sentence = result.isAllowed() ? "" : result.sentence();
    std::vector<LoggedLine> lines = {{LogLevel::Error, "The bundle is refused by policy: " + sentence}};
    if (result.isAllowed()) lines.clear();
    EXPECT_EQ(log.lines(), lines);
    return sentence;
  }
};

TEST_F(MachinePolicy, OnlyTheRequiredProductPassesAndWhatCannotBeReadRefuses) {
  const std::wstring product = StringUtils::utf8to16(readFileVersion(kBundle).product);
  const wchar_t* const required = names::kRequiredProductValue.wide;
  const wchar_t* const refuseOlder = names::kRefuseOlderValue.wide;
  EXPECT_EQ(refusal(), "");
  const std::tuple<const wchar_t*, DWORD, std::wstring, std::string> table[] = {
      {required, REG_SZ, product + std::wstring(1, L'\0') + L"x", ""},
      {required, REG_SZ, L"", ""},
      {required, REG_EXPAND_SZ, std::wstring(2000, L'x'),
       "the value RequiredProduct cannot be read: it has another type"},
      {required, REG_SZ, std::wstring(2000, L'x'),
       "the value RequiredProduct cannot be read: it is too long"},
      {refuseOlder, REG_SZ, {0, 0}, "the value RefuseOlder cannot be read: it has another type"},
      {refuseOlder, REG_DWORD, {0, 0, 0}, "the value RefuseOlder cannot be read: it is too long"},
      {refuseOlder, REG_DWORD, {0}, "the value RefuseOlder cannot be read: it is too short"}};
  for (const auto& [name, type, bytes, answer] : table) {
    clear();
    store(names::kPolicyKey.wide, name, type, bytes);
    EXPECT_EQ(refusal(), answer);
  }
}

TEST_F(MachinePolicy, AHighestVersionThatCannotBeReadIsNotReplaced) {
  store(names::kServiceKey.wide, names::kHighestInstalledVersionValue.wide, REG_SZ, L"x");
  store(names::kPolicyKey.wide, names::kRefuseOlderValue.wide, REG_DWORD, {1, 0});
  EXPECT_EQ(refusal(), "the value HighestInstalledVersion cannot be read: \"x\" is no version");
  const RecordingLog log;
  rememberInstalledVersion(kVersion);
  EXPECT_TRUE(log.contains("The highest installed version was not stored: \"x\" is no version"));
}
#endif

}  // namespace
}  // namespace zarn::testing
