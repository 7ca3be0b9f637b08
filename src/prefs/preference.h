// The definition of one named setting. It never holds the current value: that
// comes from the store (preferences.h).
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "prefs/catalogue.h"
#include "prefs/serializable.h"
#include "prefs/value_text.h"

namespace zarn {

enum class PreferenceType : std::uint32_t { Bool = 0, Text = 1, Int = 2, Double = 3 };

/// "bool", "text", "int" or "double"; "text" for every other value.
[[nodiscard]] std::string_view preferenceTypeText(PreferenceType type) noexcept;

/// The typed reads of a store: what a preference needs of it to describe itself.
class PreferenceReader {
 public:
  // Of any identifier, as callers choose it.
  [[nodiscard]] virtual bool getBool(std::string_view id) const = 0;
  [[nodiscard]] virtual std::string getString(std::string_view id) const = 0;
  [[nodiscard]] virtual std::int32_t getInt(std::string_view id) const = 0;
  [[nodiscard]] virtual double getDouble(std::string_view id) const = 0;

  /// Of a preference that the code names itself.
  template <typename T>
  [[nodiscard]] T get(PreferenceName<T> name) const {
    if constexpr (std::is_same_v<T, bool>) {
      return getBool(name.id());
    } else if constexpr (std::is_same_v<T, std::string>) {
      return getString(name.id());
    } else if constexpr (std::is_same_v<T, std::int32_t>) {
      return getInt(name.id());
    } else {
      return getDouble(name.id());
    }
  }

 protected:
  ~PreferenceReader() = default;
};

/// An object with a key that can be made from a database row.
class MediaObject : public Serializable {
 public:
  using Row = std::span<const std::string>;

  explicit MediaObject(std::string key, std::string secondKey = {});

  [[nodiscard]] std::string_view elementName() const override { return "MediaObject"; }
  /// A new object whose key is the first column of `row` (empty for an empty row).
  [[nodiscard]] virtual std::shared_ptr<MediaObject> createFromRow(Row row) const;
  [[nodiscard]] virtual const std::string& key() const { return key_; }
  [[nodiscard]] virtual const std::string& secondKey() const { return secondKey_; }

  [[nodiscard]] const std::string& thirdText() const noexcept { return thirdText_; }
  [[nodiscard]] std::int64_t id() const noexcept { return id_; }
  [[nodiscard]] std::uint64_t counter() const noexcept { return counter_; }

 private:
  std::string key_;
  std::string secondKey_;
  std::string thirdText_;
  std::int64_t id_ = -1;
  std::uint64_t counter_ = 0;
};

/// One catalogue entry. Its texts are UTF-8. Apart from the display texts and the
/// attributes it does not change after construction and may be read by any thread.
class Preference : public MediaObject {
 public:
  /// The administrator's default overrides; null for none.
  using Overrides = std::shared_ptr<const QueryString>;

  // The default is replaced by the override for `identifier`, when there is one
  // that is not empty and fits the type; one that does not fit is logged.
  Preference(std::string identifier, const char* defaultText, PreferenceFlags flags, std::string group,
             std::string featureId, std::string extra, Overrides overrides);
  Preference(std::string identifier, bool defaultBool, PreferenceFlags flags, std::string group,
             std::string featureId, std::string extra, Overrides overrides);
  Preference(std::string identifier, std::int32_t defaultInt, PreferenceFlags flags, std::string group,
             std::string featureId, std::string extra, Overrides overrides);
  /// For ports and the like: an Int that is always Hidden, whatever `flags` says.
  Preference(std::string identifier, std::uint16_t defaultInt, PreferenceFlags flags, std::string group,
             std::string featureId, std::string extra, Overrides overrides);
  Preference(std::string identifier, double defaultDouble, PreferenceFlags flags, std::string group,
             std::string featureId, std::string extra, Overrides overrides);

  [[nodiscard]] std::string_view elementName() const override { return "Setting"; }
  void fillAttributes(const PreferenceReader& store) override;
  /// A Text preference with this one's identifier, default text, flags and group.
  [[nodiscard]] virtual std::shared_ptr<Preference> clone() const;
  virtual void onStoreChanged() {}
  [[nodiscard]] virtual std::string valueSuffix() const { return {}; }

  // Each answers the type's zero when the preference is of another type.
  [[nodiscard]] bool defaultAsBool() const;
  [[nodiscard]] std::string defaultAsText() const;
  /// Throws ConversionError when the default text of an Int is no number.
  [[nodiscard]] std::int32_t defaultAsInt() const;
  [[nodiscard]] double defaultAsDouble() const;

  [[nodiscard]] PreferenceType type() const noexcept { return type_; }
  [[nodiscard]] PreferenceFlags flags() const noexcept { return flags_; }
  [[nodiscard]] bool has(PreferenceFlags flag) const noexcept {
    return (static_cast<std::uint32_t>(flags_) & static_cast<std::uint32_t>(flag)) != 0;
  }
  [[nodiscard]] const std::string& label() const noexcept { return label_; }
  [[nodiscard]] const std::string& summary() const noexcept { return summary_; }
  [[nodiscard]] const std::string& enumValues() const noexcept { return enumValues_; }
  [[nodiscard]] const std::string& group() const noexcept { return group_; }
  [[nodiscard]] const std::string& featureId() const noexcept { return featureId_; }
  [[nodiscard]] const std::string& extra() const noexcept { return extra_; }

  void setDisplayTexts(std::string label, std::string summary, std::string enumValues);

 protected:
  /// Takes the default as it is, without overrides.
  Preference(std::string identifier, PreferenceType type, std::string defaultText, PreferenceFlags flags,
             std::string group, std::string featureId, std::string extra, Overrides overrides);

 private:
  /// Makes the override for this identifier, when there is one, the default. `convert`
  /// answers its text as a default is held, or nothing when it does not fit the type.
  template <typename Convert>
  void applyOverride(const Convert& convert);

  std::string label_;
  std::string summary_;
  std::string enumValues_;
  std::string defaultValue_;
  PreferenceType type_;
  PreferenceFlags flags_;
  std::string group_;
  std::string featureId_;
  std::string extra_;
  Overrides overrides_;
};

}  // namespace zarn
