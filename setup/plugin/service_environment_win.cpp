#include <algorithm>

#include "os/handles_win.h"
#include "plugin/service_environment.h"
#include "plugin/setup_error.h"

namespace zarn::setup {
namespace {

constexpr wchar_t kKey[] = L"SYSTEM\\CurrentControlSet\\Services\\ZarnUpdateService";
constexpr wchar_t kValue[] = L"Environment";

RegistryKey openKey(REGSAM access) {
  RegistryKey key;
  const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, access, key.receive());
  if (status != ERROR_SUCCESS) {
    throw systemFailure(L"The service's registry key cannot be opened", static_cast<DWORD>(status));
  }
  return key;
}

bool isVariable(std::wstring_view entry, std::wstring_view name) {
  const auto equals = entry.find(L'=');
  return equals != std::wstring_view::npos &&
         CompareStringOrdinal(entry.data(), static_cast<int>(equals), name.data(),
                              static_cast<int>(name.size()), TRUE) == CSTR_EQUAL;
}

}  // namespace

Environment readServiceEnvironment() {
  const RegistryKey key = openKey(KEY_QUERY_VALUE);
  DWORD bytes = 0;
  LSTATUS status = RegGetValueW(key.get(), nullptr, kValue, RRF_RT_REG_MULTI_SZ, nullptr, nullptr, &bytes);
  if (status == ERROR_FILE_NOT_FOUND) return {};
  std::wstring text;
  if (status == ERROR_SUCCESS) {
    text.resize(bytes / sizeof(wchar_t) + 2);
    bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    status = RegGetValueW(key.get(), nullptr, kValue, RRF_RT_REG_MULTI_SZ, nullptr, text.data(), &bytes);
  }
  if (status != ERROR_SUCCESS) {
    throw systemFailure(L"The service's environment cannot be read", static_cast<DWORD>(status));
  }
  Environment result;
  for (const wchar_t* entry = text.c_str(); *entry != L'\0'; entry += result.back().size() + 1) {
    result.emplace_back(entry);
  }
  return result;
}

void writeServiceEnvironment(const Environment& environment) {
  const RegistryKey key = openKey(KEY_SET_VALUE);
  std::wstring text;
  for (const auto& entry : environment) text.append(entry).push_back(L'\0');
  text.push_back(L'\0');
  const LSTATUS status =
      RegSetValueExW(key.get(), kValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(text.data()),
                     static_cast<DWORD>(text.size() * sizeof(wchar_t)));
  if (status != ERROR_SUCCESS) {
    throw systemFailure(L"The service's environment cannot be written", static_cast<DWORD>(status));
  }
}

void setVariable(Environment& environment, std::wstring_view name, std::wstring_view value) {
  std::erase_if(environment, [&](const std::wstring& entry) { return isVariable(entry, name); });
  if (!value.empty()) environment.push_back(std::wstring(name) + L"=" + std::wstring(value));
}

std::wstring variable(const Environment& environment, std::wstring_view name) {
  const auto found =
      std::ranges::find_if(environment, [&](const std::wstring& entry) { return isVariable(entry, name); });
  return found == environment.end() ? std::wstring() : found->substr(name.size() + 1);
}

}  // namespace zarn::setup
