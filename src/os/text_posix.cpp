#include <boost/locale/encoding_utf.hpp>

#include "os/text.h"

namespace zarn::os {

using boost::locale::conv::utf_to_utf;

Result<std::wstring> wideFromUtf8(std::string_view text) {
  const std::string_view first = text.substr(0, text.find('\0'));
  return utf_to_utf<wchar_t>(first.data(), first.data() + first.size());
}

Result<std::string> utf8FromWide(std::wstring_view text) {
  const std::wstring_view first = text.substr(0, text.find(L'\0'));
  return utf_to_utf<char>(first.data(), first.data() + first.size());
}

}  // namespace zarn::os
