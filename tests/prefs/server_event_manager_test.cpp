#include "prefs/server_event_manager.h"

#include <gtest/gtest.h>

#include <thread>

#include "prefs/preferences_fixture.h"

namespace zarn {
namespace {

TEST(ServerEventManager, CallsSinksInTheOrderOfTheirAddressesAndMayBeUsedByThem) {
  ServerEventManager events;
  std::vector<std::string> calls;
  testing::RecordingSink sinks[3];
  for (std::size_t i = 0; i < 3; ++i) {
    sinks[i].onModified = [&, i](const std::string& id) { calls.push_back(id + std::to_string(i)); };
  }
  sinks[0].onModified = [&, record = sinks[0].onModified](const std::string& id) {
    record(id);
    events.subscribe(kPreferencesModifiedEvent, sinks[1]);  // takes part from the next event on
    if (id != "outer") return;
    // From another thread: the lock is not held during delivery.
    std::thread([&] { events.notifyPreferencesModified("inner"); }).join();
  };
  for (const std::size_t i : {2U, 0U, 2U}) events.subscribe(kPreferencesModifiedEvent, sinks[i]);
  events.notifyPreferencesModified("outer");
  EXPECT_EQ(calls, (std::vector<std::string>{"outer0", "inner0", "inner1", "inner2", "outer2"}));
}

}  // namespace
}  // namespace zarn
