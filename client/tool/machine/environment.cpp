#include "client/tool/machine/environment.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "os/handles_win.h"
#include "os/process.h"
#include "os/registry.h"
#include "os/text.h"
#include "util/product_names.h"
#include "util/stored_value_win.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr wchar_t kServicesKey[] = LR"(SYSTEM\CurrentControlSet\Services\)";
constexpr wchar_t kMachineEnvironmentKey[] =
    LR"(SYSTEM\CurrentControlSet\Control\Session Manager\Environment)";

/// More than any environment block has.
constexpr std::size_t kMostEnvironmentBytes = std::size_t{1} << 20;

struct EnvironmentBlockTraits {
  using Handle = LPWCH;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle block) noexcept { FreeEnvironmentStringsW(block); }
};
using EnvironmentBlock = ScopedHandle<EnvironmentBlockTraits>;

/// Of texts "NAME=TEXT" that follow one another, each with a zero character at its end; an
/// empty one is the last. A name may begin with the sign, as those of the drives' current
/// folders do.
Variables parseVariables(const wchar_t* text) {
  Variables result;
  while (*text != L'\0') {
    const std::wstring whole = text;
    const std::size_t sign = whole.find(L'=', 1);
    if (sign != std::wstring::npos) {
      result.insert_or_assign(StringUtils::utf16to8(whole.substr(0, sign)),
                              StringUtils::utf16to8(whole.substr(sign + 1)));
    }
    text += whole.size() + 1;
  }
  return result;
}

/// What decides on a bundle; not TEMP and its kin, which are the service's alone.
bool concernsDecisions(std::string_view name) {
  constexpr std::string_view prefix = "ZARN_MEDIA_SERVER_";
  constexpr std::string_view suffix = "_PROXY";
  static_assert(std::string_view(names::kAccountServiceHostVariable.narrow).starts_with(prefix));
  const std::string_view begin = name.substr(0, prefix.size());
  const std::string_view end = name.substr(name.size() - std::min(name.size(), suffix.size()));
  return os::equalsIgnoringCase(begin, prefix) || os::equalsIgnoringCase(end, suffix);
}

void change(const std::string& name, const std::string& text) {
  if (concernsDecisions(name)) static_cast<void>(os::setEnvironmentVariable(name.c_str(), text));
}

void adopt(const Stored<Variables>& variables) {
  const auto* const read = std::get_if<Variables>(&variables);
  if (read == nullptr) return;
  for (const auto& [name, text] : *read) change(name, text);
}

/// This user's variables must not stand in for those that the service has not.
void forgetOwnVariables() {
  const EnvironmentBlock block(GetEnvironmentStringsW());
  if (!block) return;
  for (const auto& [name, text] : parseVariables(block.get())) change(name, {});
}

/// What the value holds; nothing when it is of none of `types`.
std::optional<os::RegistryData> dataOf(HKEY key, const wchar_t* name, std::initializer_list<DWORD> types) {
  auto data = os::readRegistryValue(key, name, kMostEnvironmentBytes);
  if (!data || std::ranges::find(types, data->type) == types.end()) return std::nullopt;
  return std::move(*data);
}

/// `text` with the variables that it names between percent signs in their place; empty
/// when the system cannot do that.
std::wstring expanded(const std::wstring& text) {
  std::wstring result(32768, L'\0');  // no variable holds more
  const DWORD size =
      ExpandEnvironmentStringsW(text.c_str(), result.data(), static_cast<DWORD>(result.size()));
  result.resize(size != 0 && size <= result.size() ? size - 1 : 0);
  return result;
}

std::wstring serviceKey() {
  return std::wstring(kServicesKey) + names::kService.wide;
}

}  // namespace

/// They are text values of a key.
Stored<Variables> machineVariables() {
  const auto key = os::openRegistryKey(HKEY_LOCAL_MACHINE, kMachineEnvironmentKey, KEY_READ);
  if (!key && !key.error().isNotFound()) return unreadable(key.error());
  Variables found;
  if (!key) return found;
  for (const std::wstring& name : os::registryValueNames(key->get())) {
    const auto data = dataOf(key->get(), name.c_str(), {REG_SZ, REG_EXPAND_SZ});
    if (!data) continue;
    const std::wstring text = data->text();
    const std::wstring value = data->type == REG_SZ ? text.substr(0, text.find(L'\0')) : expanded(text);
    if (value.empty() && data->type != REG_SZ) continue;
    found.insert_or_assign(StringUtils::utf16to8(name), StringUtils::utf16to8(value));
  }
  return found;
}

/// They are the texts of one value.
Stored<Variables> serviceVariables() {
  const auto key = openStoredKey(HKEY_LOCAL_MACHINE, serviceKey().c_str());
  return whenRead(key, [](const RegistryKey& opened) -> Stored<Variables> {
    const auto data = dataOf(opened.get(), L"Environment", {REG_MULTI_SZ});
    if (!data) return Variables();
    // A stored list need not be terminated; a text of the standard library is, so that
    // with one more zero character both ends are there.
    std::wstring texts = data->text();
    texts += L'\0';
    return parseVariables(texts.c_str());
  });
}

std::vector<std::wstring> variableKeys() {
  std::vector<std::wstring> keys = {kMachineEnvironmentKey};
  const auto service = serviceVariables();
  const auto* const read = std::get_if<Variables>(&service);
  if (read == nullptr || !read->empty()) keys.push_back(serviceKey());
  return keys;
}

void adoptVariables() {
  // Both are read before the first is adopted, or one could change how the next expands.
  const auto machine = machineVariables();
  const auto service = serviceVariables();
  forgetOwnVariables();
  adopt(machine);
  adopt(service);
}

std::optional<std::string> serviceTempFolder() {
  const Environments environments{.service = serviceVariables(), .machine = machineVariables()};
  for (const char* const name : {"TMP", "TEMP"}) {
    auto folder = variableInForce(name, environments).value;
    if (!folder || !folder->empty()) return folder;
  }
  return "";
}

}  // namespace zarn::tool
