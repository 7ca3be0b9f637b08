// The machine's policy in the registry of the test's Wine prefix.
#include <gtest/gtest.h>
#include <windows.h>

#include "support/recording_log.h"
#include "trust/update_policy.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::testing {
namespace {

/// A program with a version resource, whoever made this system.
const std::string kBundle = "C:\\windows\\system32\\kernel32.dll";

class MachinePolicy : public ::testing::Test {
 protected:
  MachinePolicy() { clear(); }
  ~MachinePolicy() override { clear(); }

  static void clear() {
    for (const wchar_t* key : {names::kPolicyKey.wide, names::kServiceKey.wide}) {
      RegDeleteKeyW(HKEY_LOCAL_MACHINE, key);
    }
  }
  static void store(const wchar_t* key, const wchar_t* name, DWORD type, const std::wstring& bytes) {
    const auto size = static_cast<DWORD>(bytes.size() * sizeof(wchar_t));
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, type, bytes.data(), size), ERROR_SUCCESS);
  }
  static std::string highestInstalled() {
    wchar_t text[64] = {};
    DWORD size = sizeof(text);
    RegGetValueW(HKEY_LOCAL_MACHINE, names::kServiceKey.wide, names::kHighestInstalledVersionValue.wide,
                 RRF_RT_REG_SZ, nullptr, text, &size);
    return StringUtils::utf16to8(text);
  }

  /// The end of the one line in the log, or "" for none and an allowed bundle.
  std::string refusal() {
    log_.clear();
    const bool isAllowed = CheckUpdatePolicy(kBundle).isAllowed();
    const auto lines = log_.lines();
    EXPECT_EQ(lines.size(), isAllowed ? 0U : 1U);
    if (lines.empty()) return "";
    const std::string begin = "The bundle is refused by policy: ";
    EXPECT_TRUE(lines[0].level == LogLevel::Error && lines[0].text.starts_with(begin));
    return lines[0].text.substr(begin.size());
  }

  RecordingLog log_;
};

TEST_F(MachinePolicy, OnlyTheRequiredProductPassesAndWhatCannotBeReadRefuses) {
  const std::string product = readFileVersion(kBundle).product;
  ASSERT_FALSE(product.empty());
  EXPECT_EQ(refusal(), "");
  const wchar_t* const required = names::kRequiredProductValue.wide;
  const wchar_t* const refuseOlder = names::kRefuseOlderValue.wide;
  const std::wstring its = StringUtils::utf8to16(product);
  const std::string unreadable = "the value RequiredProduct cannot be read: ";
  const std::tuple<const wchar_t*, DWORD, std::wstring, std::string> table[] = {
      {required, REG_SZ, its, ""},
      {required, REG_SZ, L"", ""},
      {required, REG_SZ, L"Other",
       "its version resource names the product \"" + product + "\", and not \"Other\""},
      {required, REG_EXPAND_SZ, its, unreadable + "it has another type"},
      {required, REG_SZ, std::wstring(2000, L'x'), unreadable + "it is too long"},
      {refuseOlder, REG_SZ, {0, 0}, "the value RefuseOlder cannot be read: it has another type"},
      {refuseOlder, REG_DWORD, {0}, "the value RefuseOlder cannot be read: it is too short"}};
  for (const auto& [name, type, bytes, answer] : table) {
    clear();
    store(names::kPolicyKey.wide, name, type, bytes);
    EXPECT_EQ(refusal(), answer);
  }
}

TEST_F(MachinePolicy, NothingLowerThanWhatWasInstalledPassesOnceThePolicySaysSo) {
  const ProductVersion version = readFileVersion(kBundle).number.value();
  ProductVersion higher = version;
  ++higher.parts[3];
  rememberInstalledVersion({{0, 0, 0, 1}});
  EXPECT_EQ(highestInstalled(), "0.0.0.1");
  store(names::kPolicyKey.wide, names::kRefuseOlderValue.wide, REG_DWORD, {1, 0});
  rememberInstalledVersion(version);
  EXPECT_EQ(refusal(), "");
  rememberInstalledVersion(higher);
  rememberInstalledVersion(version);  // lower again
  const std::string highest = versionText(higher);
  EXPECT_EQ(highestInstalled(), highest);
  EXPECT_EQ(refusal(), "its version " + versionText(version) + " is lower than " + highest +
                           ", which was installed before");
  store(names::kServiceKey.wide, names::kHighestInstalledVersionValue.wide, REG_SZ, L"x");
  EXPECT_EQ(refusal(), "the value HighestInstalledVersion cannot be read: \"x\" is no version");
  log_.clear();
  rememberInstalledVersion(higher);
  EXPECT_TRUE(log_.contains("The highest installed version was not stored: \"x\" is no version"));
  EXPECT_EQ(highestInstalled(), "x");
}

}  // namespace
}  // namespace zarn::testing
