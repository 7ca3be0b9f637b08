#include <windows.h>

#include "os/text.h"

namespace zarn::os {
namespace {

/// Both conversions: asks `convert` for the size, then for the text, ends counted.
template <typename Text, typename Convert>
Result<Text> convertTerminated(const Convert& convert) {
  const int length = convert(nullptr, 0);
  if (length < 1) return lastFailure();
  Text result(static_cast<std::size_t>(length), 0);
  if (convert(result.data(), length) < 1) return lastFailure();
  result.pop_back();
  return result;
}

}  // namespace

Result<std::wstring> wideFromUtf8(std::string_view text) {
  if (text.empty()) return std::wstring();
  const std::string terminated(text);
  return convertTerminated<std::wstring>([&](wchar_t* buffer, int size) {
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, terminated.c_str(), -1, buffer, size);
  });
}

Result<std::string> utf8FromWide(std::wstring_view text) {
  if (text.empty()) return std::string();
  const std::wstring terminated(text);
  return convertTerminated<std::string>([&](char* buffer, int size) {
    return WideCharToMultiByte(CP_UTF8, 0, terminated.c_str(), -1, buffer, size, nullptr, nullptr);
  });
}

}  // namespace zarn::os
