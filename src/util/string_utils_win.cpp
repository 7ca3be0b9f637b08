#include "util/string_utils.h"

#include <windows.h>

#include "util/logging.h"

namespace zarn::StringUtils {

std::wstring utf8to16(std::string_view text) {
  if (text.empty()) return {};
  const std::string terminated(text);
  const auto convert = [&](wchar_t* buffer, int size) {
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, terminated.c_str(), -1, buffer, size);
  };
  const auto fail = [] {
    logLine(LogLevel::Error, "utf8to16: MultiByteToWideChar failed: %d", lastSystemError());
    return std::wstring();
  };

  const int length = convert(nullptr, 0);
  if (length < 1) return fail();
  std::wstring result(static_cast<std::size_t>(length), L'\0');
  if (convert(result.data(), length) < 1) return fail();
  result.pop_back();
  return result;
}

std::string utf16to8(std::wstring_view text) {
  if (text.empty()) return {};
  const std::wstring terminated(text);
  const auto convert = [&](char* buffer, int size) {
    return WideCharToMultiByte(CP_UTF8, 0, terminated.c_str(), -1, buffer, size, nullptr, nullptr);
  };
  const auto fail = [] {
    logLine(LogLevel::Error, "utf16to8: WideCharToMultiByte failed: %d", lastSystemError());
    return std::string();
  };

  const int length = convert(nullptr, 0);
  if (length < 1) return fail();
  std::string result(static_cast<std::size_t>(length), '\0');
  if (convert(result.data(), length) < 1) return fail();
  result.pop_back();
  return result;
}

}  // namespace zarn::StringUtils
