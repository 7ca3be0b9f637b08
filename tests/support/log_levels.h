// The level of each message, by which people filter, as levels.txt has it: every line that a test records
// or finds in a log is compared with it.
#pragma once

#include "support/table.h"

namespace zarn::testing {

/// Whether the text is of this form, in which "*" stands for anything.
inline bool isOfForm(std::string_view text, std::string_view form) {
  const std::size_t star = form.find('*');
  if (star == form.npos) return text == form;
  if (!text.starts_with(form.substr(0, star))) return false;
  for (std::size_t rest = star; rest <= text.size(); ++rest)
    if (isOfForm(text.substr(rest), form.substr(star + 1))) return true;
  return false;
}

/// "ERROR" and so on. What is in no row may have any level, and a message of two rows either.
inline void expectItsLevel(std::string_view level, std::string_view message) {
  static const auto rows = tableIn("support/levels.txt");
  std::string levels;
  for (const auto& row : rows)
    if (isOfForm(message, row.at(1))) levels += row[0] + " ";
  EXPECT_TRUE(levels.empty() || levels.find(level) != levels.npos) << level << " - " << message;
}

/// Of a line of a log file.
inline void expectItsLevel(std::string_view line) {
  const std::size_t level = line.find("] ") + 2, end = line.find(" - ", level);
  if (end == line.npos) return;
  std::string_view message = line.substr(end + 3, line.find_last_not_of('\r') - end - 2);
  if (message.starts_with("[Update")) message.remove_prefix(message.find("] ") + 2);
  expectItsLevel(line.substr(level, end - level), message);
}

}  // namespace zarn::testing
