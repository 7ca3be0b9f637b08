#include "prefs/test_preferences.h"

#include <optional>
#include <utility>

#include "prefs/value_text.h"

namespace zarn {

TestPreferences::TestPreferences(Preference::Overrides defaultOverrides, ServerEventManager& events)
    : Preferences(std::move(defaultOverrides), events) {}

std::optional<std::string> TestPreferences::find(std::string_view id) const {
  const MutexLock lock(mutex_);
  const auto found = values_.find(id);
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

// Values are kept as the text that setValue() would take. Announcements are made outside the
// lock, since sinks read preferences.
bool TestPreferences::store(std::string_view id, std::string text) {
  {
    const MutexLock lock(mutex_);
    values_.insert_or_assign(std::string(id), std::move(text));
  }
  notifyModified(id);
  return true;
}

bool TestPreferences::getBoolValueWithDefault(std::string_view id, bool fallback) const {
  const auto text = find(id);
  // As in the registry, a value of another kind counts as missing.
  if (text == "1") return true;
  if (text == "0") return false;
  return fallback;
}

std::string TestPreferences::getStringValueWithDefault(std::string_view id, std::string_view fallback) const {
  return find(id).value_or(std::string(fallback));
}

std::int32_t TestPreferences::getIntValueWithDefault(std::string_view id, std::int32_t fallback) const {
  const auto text = find(id);
  return text ? parseInt(*text).value_or(fallback) : fallback;
}

double TestPreferences::getDoubleValueWithDefault(std::string_view id, double fallback) const {
  const auto text = find(id);
  return text ? parseDouble(*text).value_or(fallback) : fallback;
}

bool TestPreferences::setStringValue(std::string_view id, std::string_view value) {
  return store(id, std::string(value));
}

bool TestPreferences::setBoolValue(std::string_view id, bool value) {
  return store(id, value ? "1" : "0");
}

bool TestPreferences::setIntValue(std::string_view id, std::int32_t value) {
  return store(id, std::to_string(value));
}

bool TestPreferences::setDoubleValue(std::string_view id, double value) {
  return store(id, doubleText(value));
}

bool TestPreferences::removeValue(std::string_view id) {
  bool erased = false;
  {
    const MutexLock lock(mutex_);
    erased = values_.erase(std::string(id)) != 0;
  }
  notifyModified(id);
  return erased;
}

}  // namespace zarn
