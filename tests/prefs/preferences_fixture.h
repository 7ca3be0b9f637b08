// A bus with a sink that records, for stores of a test's own.
#pragma once

#include <string>
#include <vector>

#include "prefs/server_event_manager.h"

namespace zarn::testing {

struct RecordingSink final : IServerEventSink {
  void onPreferenceModified(const std::string& id) override { ids.push_back(id); }
  std::vector<std::string> ids;
};

struct RecordingBus {
  RecordingBus() { events.subscribe(kPreferencesModifiedEvent, sink); }
  ServerEventManager events;
  RecordingSink sink;
};

using Ids = std::vector<std::string>;

}  // namespace zarn::testing
