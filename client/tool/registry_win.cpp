#include "client/tool/registry_win.h"

#include "os/handles_win.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

/// The value's characters, zero characters included; empty on failure.
std::wstring characters(HKEY root, const std::string& key, const std::wstring& value, DWORD kinds) {
  const std::wstring subkey = StringUtils::utf8to16(key);
  DWORD bytes = 0;
  if (RegGetValueW(root, subkey.c_str(), value.c_str(), kinds, nullptr, nullptr, &bytes) != ERROR_SUCCESS)
    return {};
  // Expanding may need more than the first answer said, and the value may grow meanwhile.
  std::wstring text;
  LSTATUS status = ERROR_MORE_DATA;
  for (int attempt = 0; attempt < 4 && status == ERROR_MORE_DATA; ++attempt) {
    text.resize(bytes + 1U);  // twice what it said, and an end
    bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    status = RegGetValueW(root, subkey.c_str(), value.c_str(), kinds, nullptr, text.data(), &bytes);
  }
  if (status != ERROR_SUCCESS) return {};
  text.resize(bytes / sizeof(wchar_t));
  return text;
}

}  // namespace

std::optional<std::string> registryText(HKEY root, const std::string& key, const std::string& value) {
  // Unexpanded, so that a text that asks to be expanded is of another kind.
  const std::wstring text = characters(root, key, StringUtils::utf8to16(value), RRF_RT_REG_SZ | RRF_NOEXPAND);
  if (text.empty()) return std::nullopt;
  return StringUtils::utf16to8(text.c_str());
}

std::vector<std::wstring> registryTexts(HKEY root, const std::string& key, const std::string& value) {
  const std::wstring all = characters(root, key, StringUtils::utf8to16(value), RRF_RT_REG_MULTI_SZ);
  std::vector<std::wstring> result;
  for (std::size_t begin = 0; begin < all.size();) {
    const std::wstring text(all.c_str() + begin);
    if (text.empty()) break;
    begin += text.size() + 1;
    result.push_back(text);
  }
  return result;
}

std::vector<std::wstring> registryAssignments(HKEY root, const std::string& key) {
  RegistryKey opened;
  std::vector<std::wstring> result;
  if (RegOpenKeyExW(root, StringUtils::utf8to16(key).c_str(), 0, KEY_READ, opened.receive()) !=
      ERROR_SUCCESS) {
    return result;
  }
  constexpr DWORD longestName = 16384;
  std::wstring name(longestName, L'\0');
  for (DWORD index = 0;; ++index) {
    DWORD length = longestName;
    if (RegEnumValueW(opened.get(), index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      return result;
    }
    const std::wstring found = name.substr(0, length);
    const std::wstring text = characters(opened.get(), "", found, RRF_RT_REG_SZ);
    if (!text.empty()) result.push_back(found + L"=" + text.substr(0, text.find(L'\0')));
  }
}

}  // namespace zarn::tool
