#include "prefs/preference.h"

#include <optional>
#include <utility>

#include "os/text.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {

std::string_view preferenceTypeText(PreferenceType type) noexcept {
  switch (type) {
    case PreferenceType::Bool:
      return "bool";
    case PreferenceType::Int:
      return "int";
    case PreferenceType::Double:
      return "double";
    case PreferenceType::Text:
      break;
  }
  // Also for a number that stands for no type.
  return "text";
}

MediaObject::MediaObject(std::string key, std::string secondKey)
    : key_(std::move(key)), secondKey_(std::move(secondKey)) {}

std::shared_ptr<MediaObject> MediaObject::createFromRow(Row row) const {
  return std::make_shared<MediaObject>(row.empty() ? std::string() : row.front());
}

// The constructors below write the default as text, whatever its type, and let the
// administrator's override replace it.
Preference::Preference(std::string identifier, PreferenceType type, std::string defaultText,
                       PreferenceFlags flags, std::string group, std::string featureId, std::string extra,
                       Overrides overrides)
    : MediaObject(std::move(identifier)),
      defaultValue_(std::move(defaultText)),
      type_(type),
      flags_(flags),
      group_(std::move(group)),
      featureId_(std::move(featureId)),
      extra_(std::move(extra)),
      overrides_(std::move(overrides)) {}

template <typename Convert>
void Preference::applyOverride(const Convert& convert) {
  const std::string* const text = overrides_ ? overrides_->find(key()) : nullptr;
  if (text == nullptr || text->empty()) return;
  if (std::optional<std::string> converted = convert(*text)) {
    defaultValue_ = std::move(*converted);
  } else {
    // An administrator wrote it, and nothing but the log could tell that it has no effect.
    logLine(LogLevel::Warn, "Preferences: invalid default value: %s=%s", key(), printable(*text));
  }
}

Preference::Preference(std::string identifier, const char* defaultText, PreferenceFlags flags,
                       std::string group, std::string featureId, std::string extra, Overrides overrides)
    : Preference(std::move(identifier), PreferenceType::Text, defaultText, flags, std::move(group),
                 std::move(featureId), std::move(extra), std::move(overrides)) {
  applyOverride([](const std::string& text) { return std::optional(text); });
}

Preference::Preference(std::string identifier, bool defaultBool, PreferenceFlags flags, std::string group,
                       std::string featureId, std::string extra, Overrides overrides)
    : Preference(std::move(identifier), PreferenceType::Bool, defaultBool ? "true" : "false", flags,
                 std::move(group), std::move(featureId), std::move(extra), std::move(overrides)) {
  applyOverride([](const std::string& text) -> std::optional<std::string> {
    for (const char* const word : {"true", "false"})
      if (os::equalsIgnoringCase(text, word)) return word;
    return std::nullopt;
  });
}

Preference::Preference(std::string identifier, std::int32_t defaultInt, PreferenceFlags flags,
                       std::string group, std::string featureId, std::string extra, Overrides overrides)
    : Preference(std::move(identifier), PreferenceType::Int, std::to_string(defaultInt), flags,
                 std::move(group), std::move(featureId), std::move(extra), std::move(overrides)) {
  applyOverride([](const std::string& text) -> std::optional<std::string> {
    const auto value = parseInt(text);
    if (!value) return std::nullopt;
    return std::to_string(*value);
  });
}

// The server keeps ports for itself: no settings screen shows them.
Preference::Preference(std::string identifier, std::uint16_t defaultInt, PreferenceFlags /*flags*/,
                       std::string group, std::string featureId, std::string extra, Overrides overrides)
    : Preference(std::move(identifier), std::int32_t{defaultInt}, PreferenceFlags::Hidden, std::move(group),
                 std::move(featureId), std::move(extra), std::move(overrides)) {}

Preference::Preference(std::string identifier, double defaultDouble, PreferenceFlags flags, std::string group,
                       std::string featureId, std::string extra, Overrides overrides)
    : Preference(std::move(identifier), PreferenceType::Double, doubleText(defaultDouble), flags,
                 std::move(group), std::move(featureId), std::move(extra), std::move(overrides)) {
  applyOverride([](const std::string& text) -> std::optional<std::string> {
    const auto value = parseDouble(text);
    if (!value) return std::nullopt;
    return doubleText(*value);
  });
}

void Preference::fillAttributes(const PreferenceReader& store) {
  setAttribute("id", key());
  setAttribute("label", label_);
  setAttribute("summary", summary_);
  setAttribute("type", preferenceTypeText(type_));
  const auto setDefaultAndValue = [this](const auto& defaultValue, const auto& value) {
    setAttribute("default", defaultValue);
    setAttribute("value", value);
  };
  switch (type_) {
    case PreferenceType::Bool:
      setDefaultAndValue(defaultAsBool(), store.getBool(key()));
      break;
    case PreferenceType::Text:
      setDefaultAndValue(defaultAsText(), store.getString(key()));
      break;
    case PreferenceType::Int:
      setDefaultAndValue(defaultAsInt(), store.getInt(key()));
      break;
    case PreferenceType::Double:
      setDefaultAndValue(defaultAsDouble(), store.getDouble(key()));
      break;
  }
  setAttribute("hidden", has(PreferenceFlags::Hidden));
  setAttribute("advanced", has(PreferenceFlags::Advanced));
  setAttribute("group", group_);
  // The attributes may be those of an earlier call, when there still were choices.
  if (enumValues_.empty()) {
    removeAttribute("enumValues");
  } else {
    setAttribute("enumValues", enumValues_);
  }
}

// The constructor for texts makes the copy a text, and applies an override as it stands:
// what the clone of a number answers is its default's text.
std::shared_ptr<Preference> Preference::clone() const {
  return std::make_shared<Preference>(key(), defaultValue_.c_str(), flags_, group_, std::string(),
                                      std::string(), overrides_);
}

bool Preference::defaultAsBool() const {
  return type_ == PreferenceType::Bool && defaultValue_ == "true";
}

std::string Preference::defaultAsText() const {
  return type_ == PreferenceType::Text ? defaultValue_ : std::string();
}

std::int32_t Preference::defaultAsInt() const {
  if (type_ != PreferenceType::Int) return 0;
  const auto value = parseInt(defaultValue_);
  // The constructors cannot have made such a default; a derived class can.
  if (!value) throw ConversionError("the default of " + key() + " is no integer");
  return *value;
}

double Preference::defaultAsDouble() const {
  return type_ == PreferenceType::Double ? parseDouble(defaultValue_).value_or(0.0) : 0.0;
}

void Preference::setDisplayTexts(std::string label, std::string summary, std::string enumValues) {
  label_ = std::move(label);
  summary_ = std::move(summary);
  enumValues_ = std::move(enumValues);
}

}  // namespace zarn
