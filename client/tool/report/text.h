// Shaping text for people. Pure functions; texts are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zarn::tool {

/// `text` on one line and ending in a full stop.
[[nodiscard]] std::string sentence(std::string_view text);

/// `text` without the full stop that the system's texts for errors have at their end, so that
/// more can follow.
[[nodiscard]] std::string clause(std::string text);

/// "name:" and value a line, the values in the same column in every text of this
/// tool; values of several lines keep to it.
[[nodiscard]] std::string fields(const std::vector<std::pair<std::string, std::string>>& rows);

/// Rows under headings, columns as wide as their widest cell, two blanks between.
[[nodiscard]] std::string table(const std::vector<std::string>& headings,
                                const std::vector<std::vector<std::string>>& rows);

/// "850 ms", "12.3 s", "4 min 05 s".
[[nodiscard]] std::string duration(std::int64_t milliseconds);

/// "512 bytes", "3.4 MiB".
[[nodiscard]] std::string fileSize(std::uint64_t bytes);

}  // namespace zarn::tool
