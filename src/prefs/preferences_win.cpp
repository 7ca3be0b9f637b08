#include "prefs/preferences_platform.h"

#include <memory>

#include "prefs/win_preferences.h"

namespace zarn::platform {

std::unique_ptr<Preferences> makePreferences() {
  return std::make_unique<WinPreferences>();
}

}  // namespace zarn::platform
