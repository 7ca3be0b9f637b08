// The store of settings: typed reads that never fail, writes that announce
// themselves on the server event bus, and the catalogue behind both.
//
//   const bool verbose = Preferences::instance().get(preference::kLogVerbose);
//
// Texts and identifiers are UTF-8; identifiers are case-sensitive.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "prefs/preference.h"
#include "prefs/preference_provider.h"
#include "prefs/serializable.h"
#include "prefs/server_event_manager.h"
#include "util/mutex.h"

namespace zarn {

/// A stored value and the words that stand for it on a settings screen.
using PreferenceChoice = std::pair<std::string, std::string>;

/// Reads and writes may come from any thread. The catalogue must be complete
/// before a second thread uses the store, which instance() sees to.
class Preferences : public Serializable, public PreferenceProvider<int, int>, public PreferenceReader {
 public:
  /// The process-wide store with the whole catalogue. Made on first use, by one
  /// thread, and never destroyed. Keeps its values in the registry; in the native
  /// build and after useTestStore(true), in memory.
  [[nodiscard]] static Preferences& instance();

  /// Makes instance() a TestPreferences. Only before its first call.
  static void useTestStore(bool use) noexcept;

  /// The overrides in ZARN_MEDIA_SERVER_DEFAULT_PREFERENCES; null when that is not set.
  [[nodiscard]] static Preference::Overrides overridesFromEnvironment();

  [[nodiscard]] std::string_view elementName() const override { return "MediaContainer"; }

  // Typed reads. Without a stored value of the right type they answer the
  // catalogue's default, and for an identifier that is not in the catalogue the
  // type's zero.
  [[nodiscard]] bool getBool(std::string_view id) const override;
  [[nodiscard]] std::string getString(std::string_view id) const override;
  [[nodiscard]] std::int32_t getInt(std::string_view id) const override;
  [[nodiscard]] double getDouble(std::string_view id) const override;

  [[nodiscard]] virtual bool getBoolValueWithDefault(std::string_view id, bool fallback) const = 0;
  [[nodiscard]] virtual std::string getStringValueWithDefault(std::string_view id,
                                                              std::string_view fallback) const = 0;
  [[nodiscard]] virtual std::int32_t getIntValueWithDefault(std::string_view id,
                                                            std::int32_t fallback) const = 0;
  [[nodiscard]] virtual double getDoubleValueWithDefault(std::string_view id, double fallback) const = 0;

  /// Writes a preference that the code names itself; the rest is as of the writes below.
  bool set(PreferenceName<std::string> name, std::string_view value) {
    return setStringValue(name.id(), value);
  }

  // Writes. True means stored and announced: the preferences-modified event has
  // been raised on this thread when the call returns.

  /// Converts `text` to the preference's type; an empty text removes the value.
  /// False for an unknown identifier. Throws ConversionError when the text of an
  /// Int or Double does not convert completely.
  virtual bool setValue(std::string_view id, std::string_view text);
  virtual bool setStringValue(std::string_view id, std::string_view value);
  virtual bool setBoolValue(std::string_view id, bool value);
  virtual bool setIntValue(std::string_view id, std::int32_t value);
  virtual bool setDoubleValue(std::string_view id, double value);
  /// Removes the stored value; false when there was none.
  virtual bool removeValue(std::string_view id) = 0;

  /// Not to be called while other threads use the store.
  virtual void addPreference(std::shared_ptr<Preference> preference);
  [[nodiscard]] virtual bool hasPreference(std::string_view id) const;
  /// Null and a logged warning for an unknown identifier.
  [[nodiscard]] virtual std::shared_ptr<Preference> findPreference(std::string_view id) const;
  virtual void notifyModified(std::string_view id);

  void resolveTexts(std::span<const std::string> identifiers) override;
  void provideTexts(PreferenceTexts& labels, PreferenceTexts& summaries) const override;
  void listPreferences(const PreferenceListRequest& request,
                       std::vector<std::shared_ptr<Preference>>& out) const override;

  /// The choices of an enumerated preference in display order; empty for others.
  /// `updateChannels` are the update channels known now.
  [[nodiscard]] std::vector<PreferenceChoice> choices(
      std::string_view id, std::span<const PreferenceChoice> updateChannels = {}) const;

  /// Adds the whole catalogue; only the first call does.
  void registerCatalogue() ZARN_EXCLUDES(lock_);

  [[nodiscard]] const std::vector<std::shared_ptr<Preference>>& registrationOrder() const noexcept {
    return registrationOrder_;
  }

 protected:
  /// `events` must outlive the store.
  explicit Preferences(Preference::Overrides defaultOverrides = overridesFromEnvironment(),
                       ServerEventManager& events = ServerEventManager::instance());

 private:
  [[nodiscard]] Preference* lookUp(std::string_view id) const;

  std::map<std::string, std::shared_ptr<Preference>, std::less<>> preferences_;
  std::vector<std::shared_ptr<Preference>> registrationOrder_;
  RecursiveMutex lock_;
  Preference::Overrides defaultOverrides_;
  bool catalogueBuilt_ ZARN_GUARDED_BY(lock_) = false;
  ServerEventManager& events_;
};

}  // namespace zarn
