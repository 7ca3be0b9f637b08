// The machine's policy in the registry of the test's Wine prefix.
#include <gtest/gtest.h>
#include <windows.h>

#include "support/recording_log.h"
#include "trust/update_policy.h"
#include "util/product_names.h"

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
  static void store(const wchar_t* key, const wchar_t* name, DWORD type, const std::wstring& bytes,
                    DWORD size) {
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, type, bytes.data(), size), ERROR_SUCCESS);
  }
  static void requireProduct(const std::string& product, DWORD type = REG_SZ) {
    const std::wstring text(product.begin(), product.end());
    store(names::kPolicyKey.wide, names::kRequiredProductValue.wide, type, text,
          static_cast<DWORD>(text.size() * sizeof(wchar_t)));
  }
  static void refuseOlder(DWORD yes, DWORD type = REG_DWORD, DWORD size = sizeof(DWORD)) {
    store(names::kPolicyKey.wide, names::kRefuseOlderValue.wide, type,
          {static_cast<wchar_t>(yes), static_cast<wchar_t>(yes >> 16U)}, size);
  }
  static std::wstring highestInstalled() {
    wchar_t text[64] = {};
    DWORD size = sizeof(text);
    RegGetValueW(HKEY_LOCAL_MACHINE, names::kServiceKey.wide, names::kHighestInstalledVersionValue.wide,
                 RRF_RT_REG_SZ, nullptr, text, &size);
    return text;
  }

  /// The end of the one line in the log, or "" for none and an allowed bundle.
  std::string refusal() {
    log_.clear();
    const bool isAllowed = CheckUpdatePolicy(kBundle).isAllowed();
    const auto lines = log_.lines();
    EXPECT_EQ(lines.size(), isAllowed ? 0U : 1U);
    if (lines.empty()) return "";
    const std::string begin = "The bundle is refused by policy: ";
    EXPECT_EQ(lines[0].level, LogLevel::Error);
    EXPECT_EQ(lines[0].text.substr(0, begin.size()), begin);
    return lines[0].text.substr(begin.size());
  }

  RecordingLog log_;
};

TEST_F(MachinePolicy, OnlyTheRequiredProductPassesAndWhatCannotBeReadRefuses) {
  EXPECT_EQ(refusal(), "");
  const FileVersion version = readFileVersion(kBundle);
  ASSERT_FALSE(version.product.empty());
  requireProduct(version.product);
  EXPECT_EQ(refusal(), "");
  requireProduct("");
  EXPECT_EQ(refusal(), "");
  requireProduct("Other");
  EXPECT_EQ(refusal(),
            "its version resource names the product \"" + version.product + "\", and not \"Other\"");
  const std::string begin = "the value RequiredProduct cannot be read: ";
  requireProduct(version.product, REG_EXPAND_SZ);
  EXPECT_EQ(refusal(), begin + "it has another type");
  requireProduct(std::string(2000, 'x'));
  EXPECT_EQ(refusal(), begin + "it is too long");
  requireProduct("");
  refuseOlder(0, REG_SZ);
  EXPECT_EQ(refusal(), "the value RefuseOlder cannot be read: it has another type");
  refuseOlder(0, REG_DWORD, 2);
  EXPECT_EQ(refusal(), "the value RefuseOlder cannot be read: it is too short");
}

TEST_F(MachinePolicy, NothingLowerThanWhatWasInstalledPassesOnceThePolicySaysSo) {
  const auto version = readFileVersion(kBundle).number;
  ASSERT_TRUE(version);
  ProductVersion higher = *version;
  ++higher.parts[3];
  for (const bool isOn : {false, true}) {
    clear();
    if (isOn) refuseOlder(1);
    rememberInstalledVersion({{0, 0, 0, 1}});
    EXPECT_EQ(highestInstalled(), L"0.0.0.1");
    rememberInstalledVersion(*version);
    EXPECT_EQ(refusal(), "");
    rememberInstalledVersion(higher);
    rememberInstalledVersion(*version);  // lower again
    const std::string highest = versionText(higher);
    EXPECT_EQ(highestInstalled(), std::wstring(highest.begin(), highest.end()));
    EXPECT_EQ(refusal(), isOn ? "its version " + versionText(*version) + " is lower than " + highest +
                                    ", which was installed before"
                              : "");
  }
  store(names::kServiceKey.wide, names::kHighestInstalledVersionValue.wide, REG_SZ, L"x", sizeof(wchar_t));
  EXPECT_EQ(refusal(), "the value HighestInstalledVersion cannot be read: \"x\" is no version");
  log_.clear();
  rememberInstalledVersion(higher);
  EXPECT_TRUE(log_.contains("The highest installed version was not stored: \"x\" is no version"));
  EXPECT_EQ(highestInstalled(), L"x");
}

}  // namespace
}  // namespace zarn::testing
