// Default overrides come from the environment as a query string: it has what a plain
// reading finds, and a default changes to nothing that does not fit its type.
#include <map>

#include "fuzz.h"
#include "os/text.h"
#include "prefs/preference.h"

namespace {

using zarn::PreferenceFlags;
using zarn::fuzz::require;

int digitOf(char c) {
  const std::size_t digit =
      std::string_view("0123456789abcdef").find(c >= 'A' && c <= 'F' ? char(c + 32) : c);
  return digit == std::string_view::npos ? -1 : static_cast<int>(digit);
}

std::string decoded(const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = i + 2 < text.size() ? digitOf(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? digitOf(text[i + 2]) : -1;
    const bool isByte = text[i] == '%' && high >= 0 && low >= 0;
    result += isByte ? static_cast<char>(16 * high + low) : text[i] == '+' ? ' ' : text[i];
    i += isByte ? 2 : 0;
  }
  return result;
}

std::map<std::string, std::string> readOverrides(const std::string& text) {
  std::map<std::string, std::string> values;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('&', begin), text.size());
    const std::size_t sign = std::min(text.find('=', begin), end);
    if (sign > begin)
      values.emplace(decoded(text.substr(begin, sign - begin)),
                     sign < end ? decoded(text.substr(sign + 1, end - sign - 1)) : "");
    begin = end + 1;
  }
  return values;
}

/// A default is what its text says, or what it was where the text does not fit.
void judgeDefaults(const std::string& text, const zarn::Preference::Overrides& overrides) {
  const auto none = PreferenceFlags::None;
  const zarn::Preference words("n", "old", none, "", "", "", overrides);
  require(words.defaultAsText() == (text.empty() ? "old" : text));
  const zarn::Preference flag("n", true, none, "", "", "", overrides);
  require(flag.defaultAsBool() != zarn::os::equalsIgnoringCase(text, "false"));
  const zarn::Preference whole("n", std::int32_t{7}, none, "", "", "", overrides);
  require(whole.defaultAsInt() == zarn::parseInt(text).value_or(7));
  const zarn::Preference real("n", 7.5, none, "", "", "", overrides);
  require(zarn::doubleText(real.defaultAsDouble()) ==
          zarn::doubleText(zarn::parseDouble(text).value_or(7.5)));
}

void judgeOverrides(const std::string& text) {
  const auto overrides = std::make_shared<const zarn::QueryString>(text);
  const auto wanted = readOverrides(text);
  for (const auto& [key, value] : wanted) {
    const std::string* const found = overrides->find(key);
    require(found != nullptr && *found == value);
    require(wanted.contains(key + 'x') || overrides->find(key + 'x') == nullptr);
  }
  const auto value = wanted.find("n");
  if (value == wanted.end()) return;
  judgeDefaults(value->second, overrides);
}

const zarn::fuzz::Target kOverrides("default_overrides", judgeOverrides);

}  // namespace
