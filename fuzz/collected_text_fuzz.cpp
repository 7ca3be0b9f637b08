// Texts that leave the machine: every line is still there, and no password in an address.
#include <algorithm>

#include "client/tool/machine/collected_text.h"
#include "fuzz.h"

namespace {

using zarn::fuzz::require;

constexpr std::string_view kPassword = "p4s$w0rd";

void judgeCollected(const std::string& input) {
  zarn::fuzz::Taking taking(input);
  const bool hasScheme = taking.byte() % 2 == 0;
  std::string user = taking.text(taking.byte());
  std::erase_if(user,
                [](char c) { return std::string_view(" \t\"'<>=,;()\n:/\\").find(c) != std::string::npos; });
  const std::string head = taking.text(taking.byte());
  const std::string text =
      head + (hasScheme ? " http://" : " ") + user + ":" + std::string(kPassword) + "@host" + taking.rest();
  const std::string shown = zarn::tool::masked(text);
  require(std::ranges::count(shown, '\n') == std::ranges::count(text, '\n'));
  require(shown.find(kPassword) == std::string::npos || input.find(kPassword) != std::string::npos);
}

const zarn::fuzz::Target kCollected("collected_text", judgeCollected);

}  // namespace
