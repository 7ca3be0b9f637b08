// A store with a bus of its own whose sink records.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

#include "prefs/preferences.h"
#include "support/recording_log.h"

namespace zarn::testing {

using ::testing::ElementsAre;

struct RecordingSink final : IServerEventSink {
  void onPreferenceModified(const std::string& id) override {
    ids.push_back(id);
    if (onModified) onModified(id);
  }
  std::vector<std::string> ids;
  std::function<void(const std::string&)> onModified;
};

template <typename Store>
struct StoreTest : ::testing::Test {
  StoreTest() {
    events.subscribe(kPreferencesModifiedEvent, sink);
    store.registerCatalogue();
  }
  /// The defaults of one preference of each type.
  void expectDefaults() {
    EXPECT_TRUE(store.getBool("logDebug"));
    EXPECT_EQ(store.getString("TranscoderLogLevel"), "error");
    EXPECT_EQ(store.getInt("LogNumFiles"), 5);
    EXPECT_EQ(store.getDouble("TranscoderH264MinimumCRF"), 16.0);
  }
  ServerEventManager events;
  RecordingSink sink;
  Store store{nullptr, events};
  RecordingLog log;
};

}  // namespace zarn::testing
