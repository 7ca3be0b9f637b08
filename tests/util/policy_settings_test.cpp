// What an administrator may set: what becomes of it, and that templates and documentation
// name the same values.
#include "util/policy_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_directory.h"

namespace zarn::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(PolicySettings, BecomeVariablesAndNothingElseCountsBesideThem) {
  // host, proxy, bypass, collector, minutes, level
  const std::string host = "ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST", level = "ZARN_MEDIA_SERVER_LOG_LEVEL";
  const std::string collector = "ZARN_MEDIA_SERVER_SYSLOG_COLLECTOR",
                    minutes = "ZARN_MEDIA_SERVER_SYSLOG_MINUTES";
  const std::string none = "(unusable policy);", noProxy = "ALL_PROXY=;NO_PROXY=;HTTPS_PROXY=";
  const Unreadable broken{"broken"};
  const std::tuple<std::size_t, Stored<std::string>, std::string, bool> table[] = {
      {0, std::monostate(), "", false},
      {0, "h:1", host + "=h:1;", false},
      {0, "", host + "=;", false},
      {0, "https://h", host + "=" + none, true},
      {0, broken, host + "=" + none, true},
      {1, "http://u:p@h:1", noProxy + "http://u:p@h:1;", false},
      {1, "", noProxy + ";", false},
      {1, "h\n", noProxy + "unusable-policy://none;", true},
      {1, broken, noProxy + "unusable-policy://none;", true},
      {2, "a, b", "NO_PROXY=a, b;", false},
      {2, broken, "NO_PROXY=;", true},
      {3, "h:1", minutes + "=;" + collector + "=h:1;", false},
      {3, broken, minutes + "=;" + collector + "=" + none, true},
      {4, "1", minutes + "=1;", false},
      {4, "0", minutes + "=" + none, true},
      {4, "2147483648", minutes + "=" + none, true},
      {5, "Debug", level + "=Debug;", false},
      {5, "", level + "=;", false},
      {5, "trace", "", true},
      {6, broken, "", false},  // read for every request, which it refuses
      {7, "1", "", false}};
  for (const auto& [row, value, changes, isWarned] : table) {
    StoredSettings stored{};
    stored[row] = value;
    const PolicyEffect effect = effectOf(stored);
    std::string text;
    for (const auto& change : effect.changes) text += change.variable + "=" + change.text + ";";
    EXPECT_EQ(text, changes);
    EXPECT_EQ(effect.warnings.size(), isWarned ? 1U : 0U) << changes;
    EXPECT_EQ(effect.inForce.empty(), changes.empty());
  }
  // What libcurl takes, and what it would show with its password.
  for (const char* good : {"h", "SOCKS5H://u:p%2f:[@10.0.0.1:1", "https://u@h/", "http://[::1]:1"})
    EXPECT_EQ(policyProblem(policySettings()[1], std::string(good)), "") << good;
  for (const char* bad :
       {"http://u:secret@ h", "http://u:sec/ret@h:1", "http://u:secret@h:99999", "u:sec#ret@h", "u:sec?ret@h",
        "u:s@secret@h", "ftp://u:secret@h", "http://u:secret@[1]", "u:secret@", "http:/u:secret@h",
        "h:1/secret", "u:secret%1f@h", "u%00:secret@h", "u:secret"}) {
    StoredSettings stored{};
    stored[1] = bad;
    const PolicyEffect effect = effectOf(stored);
    EXPECT_EQ(effect.changes.back().text, "unusable-policy://none") << bad;
    EXPECT_EQ(effect.warnings.at(0).find("secret"), std::string::npos);
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
