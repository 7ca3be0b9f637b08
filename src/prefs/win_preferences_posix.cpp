#include "prefs/test_preferences.h"
#include "prefs/win_preferences.h"

namespace zarn {

// Without a registry there is nowhere to keep settings beyond the process.
std::unique_ptr<Preferences> makePlatformPreferences() {
  return std::make_unique<TestPreferences>();
}

}  // namespace zarn
