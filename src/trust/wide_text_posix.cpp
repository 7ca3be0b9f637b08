#include <boost/locale/encoding_utf.hpp>

#include "trust/wide_text.h"

namespace zarn {

std::string utf8FromWide(std::wstring_view text) {
  const std::wstring_view first = text.substr(0, text.find(L'\0'));
  return boost::locale::conv::utf_to_utf<char>(first.data(), first.data() + first.size());
}

}  // namespace zarn
