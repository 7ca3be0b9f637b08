#include "trust/wide_text.h"
#include "util/string_utils.h"

namespace zarn {

std::string utf8FromWide(std::wstring_view text) {
  return StringUtils::utf16to8(text);
}

}  // namespace zarn
