// The store of the process. Apart from the class, which knows none of its stores.
#include <atomic>
#include <memory>

#include "prefs/preferences.h"
#include "prefs/test_preferences.h"
#include "prefs/win_preferences.h"
#include "util/file_utils.h"

namespace zarn {
namespace {

std::atomic<bool> testStoreWanted{false};

Preferences& makeInstance() {
  std::unique_ptr<Preferences> store =
      testStoreWanted ? std::make_unique<TestPreferences>() : makePlatformPreferences();
  // The folder below must not depend on this one, so it is told how to read the preference.
  FileUtils::setLocalAppDataPathReader(
      [] { return Preferences::instance().get(preference::kLocalAppDataPath); });
  return *store.release();  // lives as long as the process
}

}  // namespace

void Preferences::useTestStore(bool use) noexcept {
  testStoreWanted = use;
}

Preferences& Preferences::instance() {
  static Preferences& store = makeInstance();
  // Not part of making it: whoever reads a preference while rows are being made, as a log
  // line about an override may, gets the store as it is so far.
  store.registerCatalogue();
  return store;
}

}  // namespace zarn
