// What preferences.cpp needs of the platform; not for other libraries.
#pragma once

#include <memory>

namespace zarn {

class Preferences;

namespace platform {

/// The store that this platform keeps its settings in, without a catalogue.
std::unique_ptr<Preferences> makePreferences();

}  // namespace platform
}  // namespace zarn
