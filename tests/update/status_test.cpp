// The table of statuses, and the places that repeat it for readers who do not see it.
#include "update/status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <tuple>

#include "support/temp_directory.h"
#include "update/install_record.h"

namespace zarn {
namespace {

using ::testing::HasSubstr;

std::string inBackticks(std::string_view word) {
  return "`" + std::string(word) + "`";
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
  const std::string header = testing::readFile(ZARN_SOURCE "/client/update_client.h");
  const std::string manual = testing::readFile(ZARN_SOURCE "/docs/operations.md");
  const std::size_t heading = manual.find("\n| status | meaning | what to do |\n|---|---|---|\n");
  std::string rows = manual.substr(heading + 1, manual.find("\n\n", heading) - heading);
  rows.erase(0, rows.find("|---|---|---|\n") + 14);
  std::string constants;
  for (std::size_t at = 0; (at = header.find("constexpr std::int32_t k", at)) != std::string::npos; ++at)
    constants += header.substr(at + 23, header.find(';', at) - at - 22);
  for (const StatusFacts& facts : statuses()) {
    const std::string number = std::to_string(numberOf(facts.status));
    EXPECT_EQ(constants.substr(0, constants.find(';')), "k" + std::string(facts.name) + " = " + number);
    constants.erase(0, constants.find(';') + 1);
    const std::string row = rows.substr(0, rows.find('\n'));
    rows.erase(0, row.size() + 1);
    EXPECT_THAT(row, ::testing::StartsWith("| " + number + " | "));
    if (facts.status == Status::Failed) {
      EXPECT_THAT(row, HasSubstr("(over " + std::string(kMaximumBundleWords) + ")"));
    }
    if (facts.isSuccess && facts.installerExit != 0U) {
      EXPECT_THAT(facts.meaning, HasSubstr("exit code " + std::to_string(*facts.installerExit) + ")"));
    }
  }
  EXPECT_EQ(constants + rows, "") << "of no status";
  const auto object = toJson(InstallRecord());
  for (const auto& key : object.items()) EXPECT_THAT(manual, HasSubstr(inBackticks(key.key())));
  for (const auto name : kCheckNames) EXPECT_THAT(manual, HasSubstr(inBackticks(name)));
  for (const auto name : kVerdictNames) EXPECT_THAT(manual, HasSubstr(inBackticks(name)));
}

}  // namespace
}  // namespace zarn
