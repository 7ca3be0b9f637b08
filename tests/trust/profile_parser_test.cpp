#include "trust/profile_parser.h"

#include <gtest/gtest.h>

#include "support/recording_log.h"

namespace zarn::testing {
namespace {

using Set = std::set<std::string>;

std::string repeated(std::size_t count, const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

/// Arrays in each other, with the profile's own braces `depth` deep.
std::string nested(std::size_t depth) {
  return R"({"certs":["a"],"x":)" + repeated(depth - 1, "[") + repeated(depth - 1, "]") + "}";
}

TEST(ProfileParser, TakesTheValuesUnderCertsAsTheyStand) {
  const std::pair<std::string, Set> table[] = {
      {R"({"certs":[]})", {}},
      {R"({"certs":"a"})", {}},
      {R"({"certs":["b","a","b"],"other":{"certs":["c"]}})", {"a", "b"}},
      {R"({"certs":{"first":"a","second":"b"}})", {"a", "b"}},
      {R"({"certs":["ABCDEF"," a ",17,true]})", {"ABCDEF", " a ", "17", "true"}},
      {R"({"certs":["[[[[","\"{[","\\"],"x":")" + repeated(1000, "[{") + R"("})", {"[[[[", "\"{[", "\\"}},
      {nested(32), {"a"}},
  };
  for (const auto& [body, expected] : table) {
    const RecordingLog log;
    EXPECT_EQ(parseCertificateProfile(body), expected) << body;
    EXPECT_TRUE(log.lines().empty()) << body;
  }
}

TEST(ProfileParser, WhatCannotBeReadApprovesNothingAndSaysWhy) {
  const std::string bad = "json_parser_error";
  const std::pair<std::string, std::string> table[] = {
      {"", "json_parser_error"},
      {"garbage", "json_parser_error"},
      {R"({"certs":["a"])", "json_parser_error"},
      {R"({"certs":["a"]}x)", "json_parser_error"},
      {"{}", "exception: No such node (certs), type: "},
      {R"({"CERTS":["a"]})", "ptree_bad_path"},
      {"[\"a\"]", "No such node"},
      {nested(33), "exception: nested too deeply, type: zarn::ProfileNestingError"},
      {"\"\\\\\"" + repeated(40, "["), "nested too deeply"},  // the string ends after its escaped backslash
      {repeated(200000, "["), "nested too deeply"},
      {repeated(200000, "{\"certs\":"), "nested too deeply"},
  };
  for (const auto& [body, reason] : table) {
    const RecordingLog log;
    EXPECT_EQ(parseCertificateProfile(body), Set{}) << body.substr(0, 60);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U) << body.substr(0, 60);
    EXPECT_EQ(lines[0].level, LogLevel::Error);
    EXPECT_EQ(lines[0].text.find("Error: Could not read json data, exception: "), 0U);
    EXPECT_NE(lines[0].text.find(reason), std::string::npos) << lines[0].text;
    EXPECT_NE(lines[0].text.find(", type: "), std::string::npos);
  }
}

}  // namespace
}  // namespace zarn::testing
