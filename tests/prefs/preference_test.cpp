#include "prefs/preference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "prefs/test_preferences.h"
#include "prefs/value_text.h"
#include "support/recording_log.h"

namespace zarn::testing {
namespace {

template <typename Default>
Preference make(Default defaultValue, const std::string& overrides,
                PreferenceFlags flags = PreferenceFlags::None) {
  return {"Id", defaultValue, flags, "general", "feature", "extra", std::make_shared<QueryString>(overrides)};
}

TEST(QueryString, DecodesKeysAndValues) {
  const QueryString query("a=1&a=2&%62=x%2By+z&c&=lost&&e=100%&f=%4&g=%zz&h=p=q");
  for (const auto& [key, value] : {std::pair{"a", "1"},
                                   {"b", "x+y z"},
                                   {"c", ""},
                                   {"e", "100%"},
                                   {"f", "%4"},
                                   {"g", "%zz"},
                                   {"h", "p=q"}}) {
    ASSERT_NE(query.find(key), nullptr) << key;
    EXPECT_EQ(*query.find(key), value) << key;
  }
  EXPECT_EQ(query.find(""), nullptr);
}

TEST(ValueText, Numbers) {
  EXPECT_EQ(parseInt("-2147483648"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(parseInt("+7"), 7);
  for (const char* const text : {"", "+", "+-1", "2147483648", "12abc", " 1", "1 ", "0x10", "1.0"}) {
    EXPECT_FALSE(parseInt(text)) << text;
  }
  for (const char* const text : {"nan", "-nan", "INFINITY", "-inf", "1e3", "-.5", "2."}) {
    EXPECT_TRUE(parseDouble(text)) << text;
  }
  for (const char* const text :
       {"", "Nan", "INF", "nan(1)", "infinit", "1e", "e", "1e+", "+-1", " 1", "1 ", "0x1", "1e999", "1,5"}) {
    EXPECT_FALSE(parseDouble(text)) << text;
  }
  EXPECT_EQ(doubleText(0.1), "0.10000000000000001");
  EXPECT_EQ(doubleText(16.0), "16");
}

TEST(Preference, OverridesOfTheRightKindReplaceTheDefault) {
  const RecordingLog log;
  EXPECT_TRUE(make(false, "Id=TRUE").defaultAsBool());
  EXPECT_EQ(make("compiled", "Id=a%20b").defaultAsText(), "a b");
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
  EXPECT_THAT(log.texts(), ::testing::ElementsAre(warning + "yes", warning + "1\\x0a2", warning + "1e"));
}

TEST(Preference, DescribesItselfAsAnElement) {
  TestPreferences store(nullptr);
  store.setStringValue("Id", "a<\"&\n>");
  auto text = make("compiled", "", PreferenceFlags::Hidden);
  text.fillAttributes(store);
  ElementWriter writer;
  EXPECT_EQ(text.serialize(writer), "");
  EXPECT_EQ(
      writer.text(),
      "<Setting advanced=\"0\" default=\"compiled\" group=\"general\" hidden=\"1\" id=\"Id\" label=\"\" "
      "summary=\"\" type=\"text\" value=\"a&lt;&quot;&amp;&#10;&gt;\" />\n");
}

}  // namespace
}  // namespace zarn::testing
