// Preferences as text: a number is read when a plain grammar allows it, as the number that
// the C library reads, and what is set is what is got.
#include <cmath>
#include <cstdlib>
#include <limits>

#include "fuzz.h"
#include "os/text.h"
#include "prefs/test_preferences.h"

namespace {

using zarn::fuzz::require;

/// Takes digits off the text; how many there were.
std::size_t takeDigits(std::string_view& text) {
  const std::size_t count = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(count);
  return count;
}

void takeOne(std::string_view& text, std::string_view characters) {
  if (!text.empty() && characters.find(text[0]) != std::string_view::npos) text.remove_prefix(1);
}

bool isWholeNumber(std::string_view text) {
  takeOne(text, "+-");
  return takeDigits(text) > 0 && text.empty();
}

bool isRealNumber(std::string_view text) {
  takeOne(text, "+-");
  for (const char* const word : {"nan", "NAN", "infinity", "INFINITY", "inf"})
    if (text == word) return true;
  std::size_t digits = takeDigits(text);
  takeOne(text, ".");
  digits += takeDigits(text);
  if (digits == 0 || text.empty() || (text[0] != 'e' && text[0] != 'E')) return digits > 0 && text.empty();
  text.remove_prefix(1);
  return isWholeNumber(text);
}

bool same(double a, double b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

void judgeNumbers(const std::string& text) {
  const auto whole = zarn::parseInt(text);
  const long long wanted = std::strtoll(text.c_str(), nullptr, 10);
  require(whole.has_value() == (isWholeNumber(text) && wanted >= std::numeric_limits<std::int32_t>::min() &&
                                wanted <= std::numeric_limits<std::int32_t>::max()));
  require(!whole || *whole == wanted);
  const auto real = zarn::parseDouble(text);
  require(isRealNumber(text) || !real);
  if (!isRealNumber(text)) return;
  const double read = std::strtod(text.c_str(), nullptr);
  // What is too large or too small is none; the C library says infinity and zero.
  const bool isWord = zarn::os::isLetter(text.back());
  const bool isZero =
      text.substr(0, text.find_first_of("eE")).find_first_of("123456789") == std::string::npos;
  require(real.has_value() == (isWord || (std::isfinite(read) && (read != 0 || isZero))));
  require(!real ||
          (same(*real, read) && same(zarn::parseDouble(zarn::doubleText(*real)).value_or(1), *real)));
}

/// Whether the store took it.
bool set(zarn::Preferences& store, const char* id, const std::string& text) {
  try {
    return store.setValue(id, text);
  } catch (const zarn::ConversionError&) {
    return false;
  }
}

void judgeText(const std::string& text) {
  judgeNumbers(text);
  zarn::TestPreferences store(nullptr);
  const auto add = [&store](const char* id, auto value) {
    store.addPreference(
        std::make_shared<zarn::Preference>(id, value, zarn::PreferenceFlags::None, "", "", "", nullptr));
  };
  add("text", "old");
  add("flag", true);
  add("whole", std::int32_t{7});
  add("real", 7.5);
  // An empty text takes a value away, and there was none.
  const bool isWhole = zarn::parseInt(text).has_value(), isReal = zarn::parseDouble(text).has_value();
  const bool isText = !text.empty();
  require(set(store, "text", text) == isText && set(store, "flag", text) == isText);
  require(set(store, "whole", text) == isWhole && set(store, "real", text) == isReal);
  require(store.getString("text") == (text.empty() ? "old" : text) && !set(store, "other", text));
  require(store.getBool("flag") ==
          (text.empty() || text == "1" || zarn::os::equalsIgnoringCase(text, "true")));
  require(store.getInt("whole") == zarn::parseInt(text).value_or(7));
  require(same(store.getDouble("real"), zarn::parseDouble(text).value_or(7.5)));
}

const zarn::fuzz::Target kPreferenceText("preference_text", judgeText);

}  // namespace
