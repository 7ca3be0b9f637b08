#include "system/power_manager.h"

namespace {

// Runs while the program initialises its static state.
[[maybe_unused]] const bool started = [] {
  zarn::startPowerManager();
  return true;
}();

}  // namespace
