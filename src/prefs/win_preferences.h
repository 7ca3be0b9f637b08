// The store that keeps every value under one registry key of the current user. The
// class is for Windows only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "os/system_error.h"
#include "prefs/preferences.h"

namespace zarn {

/// Values are named by the preference's identifier and lie under
/// HKEY_CURRENT_USER\Software\Zarn, Inc.\Zarn Media Server: a Bool or Int as
/// REG_DWORD, a Double as REG_BINARY of 8 bytes, a Text as REG_SZ. A value of
/// another kind counts as missing. Every call opens and closes the key itself.
class WinPreferences final : public Preferences {
 public:
  /// Without a catalogue; registerCatalogue() or addPreference() add to it.
  explicit WinPreferences(Preference::Overrides defaultOverrides = overridesFromEnvironment(),
                          ServerEventManager& events = ServerEventManager::instance());

  // A read that fails for another reason than a missing value is logged.
  [[nodiscard]] bool getBoolValueWithDefault(std::string_view id, bool fallback) const override;
  [[nodiscard]] std::string getStringValueWithDefault(std::string_view id,
                                                      std::string_view fallback) const override;
  [[nodiscard]] std::int32_t getIntValueWithDefault(std::string_view id,
                                                    std::int32_t fallback) const override;
  [[nodiscard]] double getDoubleValueWithDefault(std::string_view id, double fallback) const override;

  // The key is created when it is missing. A failed write is not logged, and not announced.
  bool setStringValue(std::string_view id, std::string_view value) override;
  bool setBoolValue(std::string_view id, bool value) override;
  bool setIntValue(std::string_view id, std::int32_t value) override;
  bool setDoubleValue(std::string_view id, double value) override;
  bool removeValue(std::string_view id) override;

 private:
  /// Announces the change when there was one.
  bool finishWrite(std::string_view id, const Result<void>& written);
};

/// The store that this platform keeps its settings in, without a catalogue: this one on
/// Windows, natively one in memory.
[[nodiscard]] std::unique_ptr<Preferences> makePlatformPreferences();

}  // namespace zarn
