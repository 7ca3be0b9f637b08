// Tables of cases that stand in a file beside their test.
#pragma once

#include <gtest/gtest.h>

#include <fstream>

#include "support/temp_directory.h"

namespace zarn::testing {

/// The rows of `file`, a path below the tests, but for those that begin with "#": the cells between " | ".
inline std::vector<std::vector<std::string>> tableIn(const std::string& file) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream lines(FileUtils::toPath(ZARN_SOURCE "/tests/" + file).c_str());
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('#')) continue;
    auto& cells = rows.emplace_back();
    for (std::size_t end = 0; (end = line.find(" | ")) != std::string::npos; line.erase(0, end + 3))
      cells.push_back(line.substr(0, end));
    cells.push_back(line);
  }
  EXPECT_FALSE(rows.empty()) << file;
  return rows;
}

}  // namespace zarn::testing
