#include "trust/update_policy.h"

#include <gtest/gtest.h>

#include <tuple>

namespace zarn::testing {
namespace {

constexpr ProductVersion kVersion{{7, 8, 9, 0}};

/// "allowed", or the sentence of the refusal.
std::string judged(const StoredPolicy& stored, const UpdatePolicy& builtIn, const FileVersion& bundle) {
  const PolicyResult result = judgeByPolicy(stored, builtIn, [&] { return bundle; });
  return result.isAllowed() ? "allowed" : result.sentence();
}

TEST(ProductVersion, IsFourNumbersAndNothingElse) {
  for (const auto* text : {"0.0.0.0", "7.8.9.0", "65535.65535.65535.65535"}) {
    const auto version = parseVersion(text);
    ASSERT_TRUE(version) << text;
    EXPECT_EQ(versionText(*version), text);
  }
  EXPECT_EQ(parseVersion("7.8.9.0"), kVersion);
  for (const auto* text :
       {"", "7", "7.8.9", "7.8.9.", "7.8.9.0.", "7.8.9.0.1", ".7.8.9.0", "7..9.0", "+7.8.9.0", "-7.8.9.0",
        " 7.8.9.0", "7.8.9.0 ", "7.8.9.65536", "7.8.9.x", "7,8,9,0"}) {
    EXPECT_FALSE(parseVersion(text)) << text;
  }
  EXPECT_LT(kVersion, *parseVersion("7.8.10.0"));
  EXPECT_LT(*parseVersion("7.8.9.65535"), *parseVersion("10.0.0.0"));
}

TEST(UpdatePolicy, EachRuleRefusesWhatItMustAndOneThatIsOffAsksForNothing) {
  const auto version = [](const char* text) { return asVersion(Stored<std::string>(text)); };
  const Unreadable broken{"broken"};
  const FileVersion zarn{"Zarn", "text", kVersion};
  const FileVersion none;
  const std::monostate missing;
  const std::string allowed = "allowed";
  const struct {
    StoredPolicy stored;
    UpdatePolicy builtIn;
    FileVersion bundle;
    std::string answer;
  } table[] = {
      // No rule: nothing matters, not even what is stored beside it.
      {{}, {}, none, allowed},
      {{missing, 0U, broken}, {}, none, allowed},
      // The product.
      {{"Zarn"}, {}, zarn, allowed},
      {{}, {"Zarn"}, zarn, allowed},
      {{"Zarn"}, {"Other"}, zarn, allowed},
      {{""}, {"Other"}, zarn, allowed},
      {{"Other"}, {"Zarn"}, zarn, R"(its version resource names the product "Zarn", and not "Other")"},
      {{"zarn"}, {}, zarn, R"(its version resource names the product "Zarn", and not "zarn")"},
      {{"Zarn"},
       {},
       {"Zarn\n", "", kVersion},
       R"(its version resource names the product "Zarn\x0a", and not "Zarn")"},
      {{"Zarn"}, {}, none, R"(its version resource names no product, and not "Zarn")"},
      // The version.
      {{missing, 1U, missing}, {}, zarn, allowed},
      {{missing, 1U, version("7.8.9.0")}, {}, zarn, allowed},
      {{missing, 1U, version("7.8.8.65535")}, {}, zarn, allowed},
      {{missing, 0U, version("9.0.0.0")}, {"", true}, zarn, allowed},
      {{missing, missing, version("7.8.9.1")},
       {"", true},
       zarn,
       "its version 7.8.9.0 is lower than 7.8.9.1, which was installed before"},
      {{missing, 1U, version("10.0.0.0")},
       {},
       zarn,
       "its version 7.8.9.0 is lower than 10.0.0.0, which was installed before"},
      {{missing, 1U, missing}, {}, none, "it has no version number"},
      {{missing, 1U, version("7.8.9.0")}, {}, {"Zarn", "7.8.9.0", {}}, "it has no version number"},
      // Both.
      {{"Zarn", 1U, version("7.8.9.1")},
       {},
       zarn,
       "its version 7.8.9.0 is lower than 7.8.9.1, which was installed before"},
      // What cannot be read.
      {{broken}, {}, zarn, "the value RequiredProduct cannot be read: broken"},
      {{missing, broken}, {}, zarn, "the value RefuseOlder cannot be read: broken"},
      {{missing, 1U, broken}, {}, zarn, "the value HighestInstalledVersion cannot be read: broken"},
      {{missing, 1U, version("7\n")},
       {},
       zarn,
       R"(the value HighestInstalledVersion cannot be read: "7\x0a" is no version)"},
  };
  for (const auto& [stored, builtIn, bundle, answer] : table)
    EXPECT_EQ(judged(stored, builtIn, bundle), answer);
  const auto mustNotRead = []() -> FileVersion { throw std::logic_error("read"); };
  EXPECT_TRUE(judgeByPolicy({}, {}, mustNotRead).isAllowed());
}

TEST(UpdatePolicy, TheHighestVersionIsNeverLowered) {
  const std::tuple<Stored<ProductVersion>, const char*> table[] = {{std::monostate(), "7.8.9.0"},
                                                                   {ProductVersion{{7, 8, 8, 9}}, "7.8.9.0"},
                                                                   {kVersion, ""},
                                                                   {ProductVersion{{7, 8, 9, 1}}, ""},
                                                                   {Unreadable{"broken"}, ""}};
  for (const auto& [highest, text] : table) {
    EXPECT_EQ(versionToRemember(highest, kVersion).value_or(""), text);
  }
}

}  // namespace
}  // namespace zarn::testing
