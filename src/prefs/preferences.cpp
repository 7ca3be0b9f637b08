#include "prefs/preferences.h"

#include <algorithm>
#include <optional>

#include "os/process.h"
#include "os/text.h"
#include "prefs/catalogue.h"
#include "prefs/value_text.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/product_names.h"

namespace zarn {
namespace {

constexpr std::string_view kTokenField = "X-Zarn-Token";
/// Names of header fields have no case; those of arguments have.
bool carriesToken(const PreferenceListRequest& request) {
  const auto isHeader = [](const auto& field) { return os::equalsIgnoringCase(field.first, kTokenField); };
  const auto isArgument = [](const auto& field) { return field.first == kTokenField; };
  return std::any_of(request.headers.begin(), request.headers.end(), isHeader) ||
         std::any_of(request.arguments.begin(), request.arguments.end(), isArgument);
}

/// The type of the row's default chooses the constructor, and with it the preference's type.
std::shared_ptr<Preference> makePreference(const catalogue::Row& row,
                                           const Preference::Overrides& overrides) {
  return std::visit(
      [&](const auto& defaultValue) {
        return std::make_shared<Preference>(std::string(row.identifier), defaultValue, row.flags, row.group,
                                            row.featureId, std::string(), overrides);
      },
      row.defaultValue);
}

std::string textOf(const PreferenceTexts& texts, std::string_view id) {
  const auto found = texts.find(id);
  return found != texts.end() ? found->second : std::string();
}

/// "value:label" pairs joined by '|'.
std::string joinChoices(const std::vector<PreferenceChoice>& choices) {
  std::string result;
  for (const auto& [value, label] : choices) {
    if (!result.empty()) result += '|';
    result.append(value).append(":").append(label);
  }
  return result;
}

}  // namespace

Preference::Overrides Preferences::overridesFromEnvironment() {
  const auto text = environmentVariable(names::kDefaultPreferencesVariable.narrow);
  return text ? std::make_shared<const QueryString>(*text) : nullptr;
}

Preferences::Preferences(Preference::Overrides defaultOverrides, ServerEventManager& events)
    : defaultOverrides_(std::move(defaultOverrides)), events_(events) {}

void Preferences::registerCatalogue() {
  // Recursive, and marked as built first: a row whose override is invalid logs, and the log
  // reads preferences on this thread.
  const MutexLock lock(lock_);
  if (catalogueBuilt_) return;
  catalogueBuilt_ = true;
  for (const catalogue::Row& row : catalogue::kRows) addPreference(makePreference(row, defaultOverrides_));
}

void Preferences::addPreference(std::shared_ptr<Preference> preference) {
  // The last of two with one identifier is found; both are listed.
  preferences_.insert_or_assign(preference->key(), preference);
  registrationOrder_.push_back(std::move(preference));
}

Preference* Preferences::lookUp(std::string_view id) const {
  const auto found = preferences_.find(id);
  return found != preferences_.end() ? found->second.get() : nullptr;
}

bool Preferences::hasPreference(std::string_view id) const {
  return lookUp(id) != nullptr;
}

std::shared_ptr<Preference> Preferences::findPreference(std::string_view id) const {
  if (const auto found = preferences_.find(id); found != preferences_.end()) return found->second;
  logLine(LogLevel::Warn, "Preferences: cannot find unknown pref %s", printable(id));
  return nullptr;
}

void Preferences::notifyModified(std::string_view id) {
  events_.notifyPreferencesModified(id);
}

bool Preferences::getBool(std::string_view id) const {
  const Preference* const preference = lookUp(id);
  return getBoolValueWithDefault(id, preference != nullptr && preference->defaultAsBool());
}

std::string Preferences::getString(std::string_view id) const {
  const Preference* const preference = lookUp(id);
  return getStringValueWithDefault(id, preference != nullptr ? preference->defaultAsText() : std::string());
}

std::int32_t Preferences::getInt(std::string_view id) const {
  const Preference* const preference = lookUp(id);
  return getIntValueWithDefault(id, preference != nullptr ? preference->defaultAsInt() : 0);
}

double Preferences::getDouble(std::string_view id) const {
  const Preference* const preference = lookUp(id);
  return getDoubleValueWithDefault(id, preference != nullptr ? preference->defaultAsDouble() : 0.0);
}

bool Preferences::setValue(std::string_view id, std::string_view text) {
  const auto preference = findPreference(id);
  if (!preference) return false;
  if (text.empty()) return removeValue(id);
  // Thrown, since false would read as an unknown preference.
  const auto orThrow = [&](const auto& value) {
    if (!value) throw ConversionError("no value for " + preference->key() + ": " + printable(text));
    return *value;
  };
  switch (preference->type()) {
    case PreferenceType::Bool:
      return setBoolValue(id, os::equalsIgnoringCase(text, "true") || text == "1");
    case PreferenceType::Text:
      return setStringValue(id, text);
    case PreferenceType::Int:
      return setIntValue(id, orThrow(parseInt(text)));
    case PreferenceType::Double:
      return setDoubleValue(id, orThrow(parseDouble(text)));
  }
  return false;
}

// A store that keeps nothing says so and goes on: a setting is not worth a failure.
bool Preferences::setStringValue(std::string_view id, std::string_view value) {
  logLine(LogLevel::Warn, "WARNING: no platform-specific preference store, not setting %s to %s",
          printable(id), printable(value));
  return false;
}

bool Preferences::setBoolValue(std::string_view id, bool value) {
  logLine(LogLevel::Warn, "WARNING: no platform-specific preference store, not setting %s to %s",
          printable(id), std::string_view(value ? "true" : "false"));
  return false;
}

bool Preferences::setIntValue(std::string_view id, std::int32_t value) {
  logLine(LogLevel::Warn, "WARNING: no platform-specific preference store, not setting %s to %d",
          printable(id), value);
  return false;
}

bool Preferences::setDoubleValue(std::string_view id, double value) {
  logLine(LogLevel::Warn, "WARNING: no platform-specific preference store, not setting %s to %f",
          printable(id), value);
  return false;
}

void Preferences::provideTexts(PreferenceTexts& labels, PreferenceTexts& summaries) const {
  for (const catalogue::Texts& texts : catalogue::texts()) {
    labels.insert_or_assign(std::string(texts.identifier), texts.label);
    if (!texts.summary.empty()) summaries.insert_or_assign(std::string(texts.identifier), texts.summary);
  }
}

void Preferences::resolveTexts(std::span<const std::string> identifiers) {
  PreferenceTexts labels;
  PreferenceTexts summaries;
  provideTexts(labels, summaries);
  for (const std::string& id : identifiers) {
    const std::string values = joinChoices(choices(id));
    bool known = false;
    {
      const MutexLock lock(lock_);  // not while logging: a log line may need the store
      Preference* const preference = lookUp(id);
      known = preference != nullptr;
      if (known) preference->setDisplayTexts(textOf(labels, id), textOf(summaries, id), values);
    }
    if (!known) logLine(LogLevel::Warn, "Invalid preference '%s' referenced.", printable(id));
  }
}

std::vector<PreferenceChoice> Preferences::choices(std::string_view id,
                                                   std::span<const PreferenceChoice> updateChannels) const {
  std::vector<PreferenceChoice> result;
  if (id == catalogue::kUpdateChannel) {
    result.assign(updateChannels.begin(), updateChannels.end());
    if (!result.empty()) return result;
    logLine(LogLevel::Warn,
            "[Preferences] No update channels loaded, so showing the previously-selected channel, "
            "labelled 'unknown' since we don't really know the name.");
    return {{getString(id), "unknown"}};
  }
  for (const catalogue::Choice& choice : catalogue::choices()) {
    if (choice.identifier == id) result.emplace_back(choice.value, choice.label);
  }
  return result;
}

void Preferences::listPreferences(const PreferenceListRequest& request,
                                  std::vector<std::shared_ptr<Preference>>& out) const {
  const bool signedIn = !get(preference::kZarnOnlineToken).empty();
  // The check judges the account behind a token; without one there is nothing to judge.
  const PreferenceAccessCheck* const check = carriesToken(request) ? request.accessCheck : nullptr;
  for (const auto& preference : registrationOrder_) {
    if (preference->has(PreferenceFlags::Private)) continue;
    if (preference->has(PreferenceFlags::RequiresSignIn) && !signedIn) continue;
    if (check != nullptr && !check->allows(*preference)) continue;
    out.push_back(preference);
  }
}

}  // namespace zarn
