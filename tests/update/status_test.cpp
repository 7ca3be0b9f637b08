// The table of statuses, and the places that repeat it for readers who do not see it.
#include "update/status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <tuple>

#include "support/temp_directory.h"
#include "update/install_record.h"

namespace zarn {
namespace {

using ::testing::HasSubstr;

/// What stands between `before` and the next `after`, each time that it does.
std::vector<std::string> between(const std::string& text, std::string_view before, char after) {
  std::vector<std::string> result;
  for (std::size_t at = text.find(before); at != std::string::npos; at = text.find(before, at)) {
    at += before.size();
    result.push_back(text.substr(at, text.find(after, at) - at));
  }
  return result;
}

TEST(Status, IsWhatAnInstallersExitCodeBecomes) {
  for (const auto& [code, status, isInstalled, restarts] : {std::tuple{0U, 0, true, true},
                                                            {3010U, 30000, true, true},
                                                            {1641U, 30001, true, false},
                                                            {30003U, 30003, false, false},
                                                            {259U, 30002, false, false},
                                                            {0xC0000005U, 30002, false, false}}) {
    const StatusFacts& facts = judgeExitCode(code);
    EXPECT_EQ(numberOf(facts.status), status) << code;
    EXPECT_EQ(isSuccess(facts.status), isInstalled) << code;
    EXPECT_EQ(facts.restartsService, restarts) << code;
  }
  for (const int number : {5, 30004, 30005, 30006}) EXPECT_FALSE(isSuccess(Status{number})) << number;
}

TEST(Status, IsTheSameForCallersAndInTheDocumentation) {
  std::vector<std::string> constants, numbers;
  for (const StatusFacts& facts : statuses()) {
    numbers.push_back(std::to_string(numberOf(facts.status)));
    constants.push_back(std::string(facts.name) + " = " + numbers.back());
    const std::string exit = "exit code " + std::to_string(facts.installerExit.value_or(0)) + ")";
    EXPECT_EQ(facts.meaning.find(exit) != std::string_view::npos,
              facts.isSuccess && facts.installerExit != 0U);
  }
  const std::string header = testing::readFile(ZARN_SOURCE "/client/update_client.h");
  EXPECT_EQ(between(header, "constexpr std::int32_t k", ';'), constants);
  const std::string manual = testing::readFile(ZARN_SOURCE "/docs/operations.md");
  const std::size_t begin = manual.find("| status | meaning");
  const std::string rows = manual.substr(begin, manual.find("\n\n", begin) - begin);
  EXPECT_EQ(between(rows, "\n| ", ' '), numbers);
  EXPECT_THAT(rows, HasSubstr("too large (over " + std::string(kMaximumBundleWords) + ")"));
  // How records are described.
  const auto words = between(manual, "`", '`');
  std::vector<std::string> wanted(kCheckNames.begin(), kCheckNames.end());
  wanted.insert(wanted.end(), kVerdictNames.begin(), kVerdictNames.end());
  const auto object = toJson(InstallRecord());
  for (const auto& key : object.items()) wanted.push_back(key.key());
  EXPECT_THAT(words, ::testing::IsSupersetOf(std::set<std::string>(wanted.begin(), wanted.end())));
}

}  // namespace
}  // namespace zarn
