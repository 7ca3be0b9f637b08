#include "prefs/server_event_manager.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

namespace zarn {
namespace {

struct FunctionSink final : IServerEventSink {
  FunctionSink() = default;
  explicit FunctionSink(std::function<void(const std::string&)> function) : call(std::move(function)) {}
  void onPreferenceModified(const std::string& id) override { call(id); }
  std::function<void(const std::string&)> call;
};

TEST(ServerEventManager, CallsSinksInTheOrderOfTheirAddressesOnce) {
  ServerEventManager events;
  std::vector<std::string> calls;
  FunctionSink sinks[3];
  for (std::size_t i = 0; i < 3; ++i) {
    sinks[i].call = [&calls, i](const std::string& id) { calls.push_back(id + std::to_string(i)); };
  }
  for (const std::size_t i : {2U, 0U, 1U, 0U}) events.subscribe(kPreferencesModifiedEvent, sinks[i]);
  events.notifyPreferencesModified("id");
  EXPECT_EQ(calls, (std::vector<std::string>{"id0", "id1", "id2"}));
}

TEST(ServerEventManager, SinksMayRaiseAndSubscribe) {
  ServerEventManager events;
  std::vector<std::string> calls;
  FunctionSink late([&](const std::string& id) { calls.push_back("late " + id); });
  FunctionSink first([&](const std::string& id) {
    calls.push_back("first " + id);
    events.subscribe(kPreferencesModifiedEvent, late);
    if (id == "outer") {
      // From another thread: the lock is not held during delivery.
      std::thread([&] { events.notifyPreferencesModified("inner"); }).join();
    }
  });
  events.subscribe(kPreferencesModifiedEvent, first);
  events.notifyPreferencesModified("outer");
  std::vector<std::string> expected = {"first outer", "first inner", "late inner"};
  if (std::less<IServerEventSink*>()(&late, &first)) std::swap(expected[1], expected[2]);
  EXPECT_EQ(calls, expected);  // "late outer" is missing: it came during that delivery
}

}  // namespace
}  // namespace zarn
