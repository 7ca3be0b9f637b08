// A store that keeps its values in memory.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "prefs/preferences.h"

namespace zarn {

class TestPreferences final : public Preferences {
 public:
  /// Without a catalogue; registerCatalogue() or addPreference() add to it.
  explicit TestPreferences(Preference::Overrides defaultOverrides = overridesFromEnvironment(),
                           ServerEventManager& events = ServerEventManager::instance());

  [[nodiscard]] bool getBoolValueWithDefault(std::string_view id, bool fallback) const override;
  [[nodiscard]] std::string getStringValueWithDefault(std::string_view id,
                                                      std::string_view fallback) const override;
  [[nodiscard]] std::int32_t getIntValueWithDefault(std::string_view id,
                                                    std::int32_t fallback) const override;
  [[nodiscard]] double getDoubleValueWithDefault(std::string_view id, double fallback) const override;

  bool setStringValue(std::string_view id, std::string_view value) override;
  bool setBoolValue(std::string_view id, bool value) override;
  bool setIntValue(std::string_view id, std::int32_t value) override;
  bool setDoubleValue(std::string_view id, double value) override;
  /// Announced even when there was nothing to remove.
  bool removeValue(std::string_view id) override;

 private:
  [[nodiscard]] std::optional<std::string> find(std::string_view id) const ZARN_EXCLUDES(mutex_);
  bool store(std::string_view id, std::string text) ZARN_EXCLUDES(mutex_);

  std::map<std::string, std::string, std::less<>> values_ ZARN_GUARDED_BY(mutex_);
  mutable Mutex mutex_;
};

}  // namespace zarn
