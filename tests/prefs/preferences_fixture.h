// A bus with a sink that records, for stores of a test's own.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "prefs/server_event_manager.h"

namespace zarn::testing {

struct RecordingSink final : IServerEventSink {
  void onPreferenceModified(const std::string& id) override {
    ids.push_back(id);
    if (onModified) onModified(id);
  }
  std::vector<std::string> ids;
  std::function<void(const std::string&)> onModified;
};

struct RecordingBus {
  RecordingBus() { events.subscribe(kPreferencesModifiedEvent, sink); }
  ServerEventManager events;
  RecordingSink sink;
};

}  // namespace zarn::testing
