#include "client/tool/report/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace zarn::tool {
namespace {

/// Columns on a terminal, nearly: code points.
std::size_t width(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

std::string padded(std::string_view text, std::size_t columns) {
  std::string result(text);
  result.append(columns - std::min(columns, width(text)), ' ');
  return result;
}

void trimEnd(std::string& text) {
  text.erase(text.find_last_not_of(" \r\n\t") + 1);
}

}  // namespace

std::string sentence(std::string_view text) {
  // The system's texts for errors have line breaks at their end and sometimes inside.
  std::string result;
  for (const char c : text) {
    const bool blank = c == '\n' || c == '\r' || c == ' ';
    if (!blank) {
      result += c;
    } else if (!result.empty() && result.back() != ' ') {
      result += ' ';
    }
  }
  trimEnd(result);
  if (!result.empty() && result.back() != '.' && result.back() != '?') result += '.';
  return result;
}

std::string clause(std::string text) {
  trimEnd(text);
  if (text.ends_with('.')) text.pop_back();
  return text;
}

std::string fields(const std::vector<std::pair<std::string, std::string>>& rows) {
  constexpr std::size_t column = 16;
  std::string result;
  for (const auto& [name, value] : rows) {
    // The name stands in front of the value's first line only.
    std::string indent = padded(name + ":", column);
    std::size_t begin = 0;
    while (begin <= value.size()) {
      const std::size_t end = std::min(value.find('\n', begin), value.size());
      std::string line = indent + value.substr(begin, end - begin);
      trimEnd(line);
      result += line + "\n";
      indent.assign(column, ' ');
      begin = end + 1;
    }
  }
  return result;
}

std::string table(const std::vector<std::string>& headings,
                  const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> columns;
  columns.reserve(headings.size());
  for (const auto& heading : headings) columns.push_back(width(heading));
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < columns.size(); ++i) columns[i] = std::max(columns[i], width(row.at(i)));
  }
  const auto line = [&](const std::vector<std::string>& cells) {
    std::string text;
    for (std::size_t i = 0; i < columns.size(); ++i) text += padded(cells.at(i), columns[i] + 2);
    trimEnd(text);
    return text + "\n";
  };
  std::string result = line(headings);
  for (const auto& row : rows) result += line(row);
  return result;
}

std::string duration(std::int64_t milliseconds) {
  // Times are cut and not rounded, so that no request is shown as longer than it was.
  if (milliseconds < 1000) return fmt::format("{} ms", milliseconds);
  const std::int64_t tenths = milliseconds / 100;
  if (tenths < 600) return fmt::format("{}.{} s", tenths / 10, tenths % 10);
  const std::int64_t seconds = milliseconds / 1000;
  return fmt::format("{} min {:02} s", seconds / 60, seconds % 60);
}

std::string fileSize(std::uint64_t bytes) {
  constexpr std::array<const char*, 3> units = {"KiB", "MiB", "GiB"};
  if (bytes < 1024) return fmt::format("{} bytes", bytes);
  double amount = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  while (amount >= 1024 && unit + 1 < units.size()) amount /= 1024, ++unit;
  return fmt::format("{:.1f} {}", amount, units.at(unit));
}

}  // namespace zarn::tool
