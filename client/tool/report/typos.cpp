#include "client/tool/report/typos.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "os/text.h"

namespace zarn::tool {
namespace {

/// No name is longer; it also bounds what a typed text may cost.
constexpr std::size_t kLongestName = 32;

/// How many letters are to be put in, taken out, replaced or exchanged with their neighbour
/// to make one text of the other.
std::size_t slips(std::string_view typed, std::string_view name) {
  // Rows of the usual table: distances of what was typed so far to each beginning of the name.
  std::vector<std::size_t> before, above, row(name.size() + 1);
  for (std::size_t j = 0; j <= name.size(); ++j) row[j] = j;
  before = above = row;
  for (std::size_t i = 1; i <= typed.size(); ++i) {
    before = std::exchange(above, row);
    row[0] = i;
    for (std::size_t j = 1; j <= name.size(); ++j) {
      const char a = os::lowerCase(typed[i - 1]), b = name[j - 1];
      row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (a == b ? 0U : 1U)});
      const bool isExchanged = i > 1 && j > 1 && a == name[j - 2] && os::lowerCase(typed[i - 2]) == b;
      if (isExchanged) row[j] = std::min(row[j], before[j - 2] + 1);
    }
  }
  return row.back();
}

bool isBeginning(std::string_view typed, std::string_view name) noexcept {
  return typed.size() >= 3 && os::equalsIgnoringCase(typed, name.substr(0, typed.size()));
}

}  // namespace

std::string_view nearest(std::string_view typed, std::span<const std::string_view> names) {
  if (typed.empty() || typed.size() > kLongestName) return {};
  std::string_view found;
  std::size_t fewest = std::max<std::size_t>(1, typed.size() / 3) + 1;
  for (const std::string_view name : names) {
    const std::size_t count = isBeginning(typed, name) ? 1 : slips(typed, name);
    if (count < fewest) found = name, fewest = count;
  }
  return found;
}

}  // namespace zarn::tool
