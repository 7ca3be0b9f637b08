#include "util/plain_format.h"

#include <algorithm>
#include <charconv>

namespace zarn::detail {

// Kept out of the header: inlined, these two would grow every one of the log calls.

void PlainWriter::text(std::string_view text) noexcept {
  end_ = std::copy(text.begin(), text.end(), end_);
}

void PlainWriter::number(std::uint64_t magnitude, bool isNegative) noexcept {
  *end_ = '-';
  if (isNegative) ++end_;
  end_ = std::to_chars(end_, end_ + kMostDigits, magnitude).ptr;
}

std::string formatWithLibrary(std::string_view format, fmt::printf_args args) {
  return fmt::vsprintf(fmt::string_view(format.data(), format.size()), args);
}

}  // namespace zarn::detail
