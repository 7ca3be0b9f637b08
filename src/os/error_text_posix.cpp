#include <system_error>

#include "os/error_text.h"

namespace zarn {

// Windows ends its texts with a line break, which callers take off or keep.
std::string systemErrorText(std::uint32_t code) {
  return std::generic_category().message(static_cast<int>(code)) + "\n";
}

}  // namespace zarn
