// Default overrides come from the environment as a query string.
#include "fuzz.h"
#include "prefs/value_text.h"

void judge(const std::string& text) {
  static_cast<void>(zarn::QueryString(text).find("LogNumFiles"));
}
