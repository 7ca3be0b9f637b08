// What an administrator may set: what becomes of it, and that templates and documentation
// name the same values.
#include "util/policy_settings.h"

#include "support/test.h"

namespace zarn::testing {
namespace {

TEST(PolicySettings, BecomeVariablesAndNothingElseCountsBesideThem) {
  auto rows = tableIn("util/policies.txt");
  rows.push_back({"1", "u:secret@h\n", "ALL_PROXY=;NO_PROXY=;HTTPS_PROXY=unusable-policy://none;", "warned"});
  for (const Lines& row : rows) {
    StoredSettings stored{};
    Stored<std::string>& value = stored.at(std::stoul(row[0]));
    if (row[1] != "(not set)") value = row[1];
    if (row[1] == "(unreadable)") value = Unreadable{"broken"};
    const PolicyEffect effect = effectOf(stored);
    std::string text;
    for (const auto& change : effect.changes) text += change.variable + "=" + change.text + ";";
    EXPECT_EQ(text, row[2]);
    EXPECT_EQ(effect.warnings.size(), row[3] == "warned" ? 1U : 0U) << row[1];
    for (const auto& warning : effect.warnings) EXPECT_THAT(warning, ::testing::Not(HasSubstr("secret")));
    EXPECT_EQ(effect.inForce.empty(), text.empty());
  }
}

TEST(PolicySettings, AreTheSameInTheTemplatesAndTheDocumentation) {
  const std::string templates = readFile(ZARN_SOURCE "/setup/policy/ZarnUpdateService.admx");
  const std::string manual = readFile(ZARN_SOURCE "/docs/operations.md");
  const auto count = [](const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
    return found;
  };
  for (const PolicySetting& row : policySettings()) {
    const bool isText = row.kind == PolicyKind::Text;
    const std::string name = "valueName=\"" + std::string(row.value) + "\"";
    ASSERT_EQ(count(templates, name), 1U) << row.value;
    const std::size_t at = templates.find(name), begin = templates.rfind('<', at);
    const std::string element = templates.substr(begin, templates.find('>', at) - begin);
    // One is chosen from a list, one is on or off.
    if (row.value != std::string_view("LogLevel") && row.value != std::string_view("RefuseOlder")) {
      const std::string least = isText ? "" : " minValue=\"" + std::to_string(row.least) + "\"";
      EXPECT_THAT(element, StartsWith(isText ? "<text " : "<decimal "));
      EXPECT_THAT(element, HasSubstr(least + (isText ? " maxLength=\"" : " maxValue=\"") +
                                     std::to_string(row.most) + "\""));
    }
    const std::string kind = isText ? "REG_SZ" : "REG_DWORD";
    const std::string variable = row.variable == nullptr ? "|" : "`" + std::string(row.variable) + "`";
    EXPECT_THAT(manual, HasSubstr("| `" + std::string(row.value) + "`, " + kind + " | " + variable));
  }
  EXPECT_EQ(count(templates, "valueName="), policySettings().size());
  EXPECT_EQ(count(manual, "`, REG_SZ |") + count(manual, "`, REG_DWORD |"), policySettings().size());
  EXPECT_EQ(count(templates, R"(key="Software\Policies\Zarn, Inc.\Zarn Update Service")"),
            count(templates, "<policy name="))
      << "the key of every policy";
  for (const char* level : {"info", "debug", "verbose"})
    EXPECT_THAT(templates, HasSubstr("<string>" + std::string(level) + "</string>"));
}

}  // namespace
}  // namespace zarn::testing
