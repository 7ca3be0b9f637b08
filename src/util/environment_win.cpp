#include <windows.h>

#include "util/environment.h"
#include "util/string_utils.h"

namespace zarn {

std::optional<std::string> environmentVariable(const char* name) {
  const std::wstring wideName = StringUtils::utf8to16(name);
  std::wstring buffer;
  DWORD size = GetEnvironmentVariableW(wideName.c_str(), nullptr, 0);
  // Another thread may set a longer text between the two calls: ask again, for as long as it grows.
  while (size > buffer.size()) {
    buffer.resize(size);
    size = GetEnvironmentVariableW(wideName.c_str(), buffer.data(), size);
  }
  // An empty text needs room for its end (size 1) and is then 0 characters long.
  if (buffer.empty()) return std::nullopt;
  buffer.resize(size);
  return StringUtils::utf16to8(buffer);
}

}  // namespace zarn
