// The machine's policy in the registry of the test's Wine prefix.
#include <gtest/gtest.h>
#include <windows.h>

#include "os/registry.h"
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
  static void store(const wchar_t* path, const wchar_t* name, DWORD type, const std::wstring& bytes) {
    const auto key = os::createRegistryKey(HKEY_LOCAL_MACHINE, path, KEY_SET_VALUE);
    const std::size_t size = bytes.size() * sizeof(wchar_t);
    ASSERT_TRUE(os::writeRegistryValue(key.value().get(), name, type, bytes.data(), size));
  }
  static std::wstring highestInstalled() {
    const auto key = os::openRegistryKey(HKEY_LOCAL_MACHINE, names::kServiceKey.wide, KEY_QUERY_VALUE);
    return os::readRegistryValue(key.value().get(), names::kHighestInstalledVersionValue.wide, 64)
        ->text()
        .c_str();
  }

  /// Why the bundle is refused, as the log has it; empty when it is allowed.
  std::string refusal() {
    log_.clear();
    const PolicyResult result = CheckUpdatePolicy(kBundle);
    std::vector<LoggedLine> logged;
    if (!result.isAllowed())
      logged.push_back({LogLevel::Error, "The bundle is refused by policy: " + result.sentence()});
    EXPECT_EQ(log_.lines(), logged);
    return result.isAllowed() ? "" : result.sentence();
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
  const std::wstring tooLong(2000, L'x');
  const std::string noText = "the value RequiredProduct cannot be read: ";
  const std::string noNumber = "the value RefuseOlder cannot be read: ";
  const std::tuple<const wchar_t*, DWORD, std::wstring, std::string> table[] = {
      {required, REG_SZ, its, ""},
      {required, REG_SZ, its + std::wstring(1, L'\0') + L"x", ""},
      {required, REG_SZ, L"", ""},
      {required, REG_SZ, L"x", "its version resource names the product \"" + product + "\", and not \"x\""},
      {required, REG_EXPAND_SZ, tooLong, noText + "it has another type"},
      {required, REG_SZ, tooLong, noText + "it is too long"},
      {refuseOlder, REG_SZ, {0, 0}, noNumber + "it has another type"},
      {refuseOlder, REG_DWORD, {0, 0, 0}, noNumber + "it is too long"},
      {refuseOlder, REG_DWORD, {0}, noNumber + "it is too short"}};
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
  EXPECT_EQ(highestInstalled(), L"0.0.0.1");
  store(names::kPolicyKey.wide, names::kRefuseOlderValue.wide, REG_DWORD, {1, 0});
  rememberInstalledVersion(version);
  EXPECT_EQ(refusal(), "");
  rememberInstalledVersion(higher);
  rememberInstalledVersion(version);  // lower again
  const std::string highest = versionText(higher);
  EXPECT_EQ(highestInstalled(), StringUtils::utf8to16(highest));
  EXPECT_EQ(refusal(), "its version " + versionText(version) + " is lower than " + highest +
                           ", which was installed before");
  store(names::kServiceKey.wide, names::kHighestInstalledVersionValue.wide, REG_SZ, L"x");
  EXPECT_EQ(refusal(), "the value HighestInstalledVersion cannot be read: \"x\" is no version");
  log_.clear();
  rememberInstalledVersion(higher);
  EXPECT_TRUE(log_.contains("The highest installed version was not stored: \"x\" is no version"));
  EXPECT_EQ(highestInstalled(), L"x");
}

}  // namespace
}  // namespace zarn::testing
