#include "trust/update_policy.h"

#include <gtest/gtest.h>

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
  const FileVersion zarn{"Zarn", "text", kVersion};
  const FileVersion line{"Zarn\n", "", kVersion};
  const FileVersion noNumber{"Zarn", "7.8.9.0", {}};
  const FileVersion none;
  const std::monostate missing;
  const UpdatePolicy notOlder{"", true};
  const std::string names = "its version resource names ";
  const std::string before = ", which was installed before";
  const std::string lower = "its version 7.8.9.0 is lower than ";
  const std::string highest = "the value HighestInstalledVersion cannot be read: ";
  const struct {
    StoredPolicy stored;
    UpdatePolicy builtIn;
    FileVersion bundle;
    std::string refusal;
  } table[] = {// No rule: nothing matters, not even what is stored beside it.
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
               {{missing, 0U, version("9.0.0.0")}, notOlder, zarn, ""},
               {{missing, missing, version("7.8.9.1")}, notOlder, zarn, lower + "7.8.9.1" + before},
               {{missing, 1U, version("10.0.0.0")}, {}, zarn, lower + "10.0.0.0" + before},
               {{missing, 1U, version("7.8.9.0")}, {}, noNumber, "it has no version number"},
               {{missing, 1U, missing}, {}, none, "it has no version number"},
               // Both.
               {{"Zarn", 1U, version("7.8.9.1")}, {}, zarn, lower + "7.8.9.1" + before},
               // What cannot be read.
               {{broken}, {}, zarn, "the value RequiredProduct cannot be read: broken"},
               {{missing, broken}, {}, zarn, "the value RefuseOlder cannot be read: broken"},
               {{missing, 1U, version("7\n")}, {}, zarn, highest + R"("7\x0a" is no version)"}};
  for (const auto& [stored, builtIn, bundle, refusal] : table) {
    const PolicyResult result = judgeByPolicy(stored, builtIn, [&bundle = bundle] { return bundle; });
    EXPECT_EQ(result.isAllowed() ? "" : result.sentence(), refusal);
  }
  const auto mustNotRead = []() -> FileVersion { throw std::logic_error("read"); };
  EXPECT_TRUE(judgeByPolicy({}, {}, mustNotRead).isAllowed());
}

TEST(UpdatePolicy, TheHighestVersionIsNeverLowered) {
  const std::pair<Stored<ProductVersion>, const char*> table[] = {{std::monostate(), "7.8.9.0"},
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
