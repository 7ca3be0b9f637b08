#include "prefs/preferences_platform.h"

#include <memory>

#include "prefs/test_preferences.h"

namespace zarn::platform {

std::unique_ptr<Preferences> makePreferences() {
  return std::make_unique<TestPreferences>();
}

}  // namespace zarn::platform
