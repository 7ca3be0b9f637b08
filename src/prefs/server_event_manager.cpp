#include "prefs/server_event_manager.h"

#include <ctime>

namespace zarn {

ServerEventManager& ServerEventManager::instance() {
  // Never destroyed: threads that outlive the static objects may still raise events.
  static ServerEventManager& manager = *std::make_unique<ServerEventManager>().release();
  return manager;
}

ServerEventManager::EventContext& ServerEventManager::context(std::string_view eventName) {
  auto found = contexts_.find(eventName);
  if (found == contexts_.end()) {
    found = contexts_.emplace(std::string(eventName), std::make_shared<EventContext>()).first;
  }
  return *found->second;
}

void ServerEventManager::subscribe(std::string_view eventName, IServerEventSink& sink) {
  const MutexLock lock(mutex_);
  context(eventName).sinks.insert(&sink);
}

ServerEventManager::Sinks ServerEventManager::raise(std::string_view eventName) {
  const MutexLock lock(mutex_);
  EventContext& event = context(eventName);
  event.lastRaised = std::time(nullptr);
  return event.sinks;
}

void ServerEventManager::notifyPreferencesModified(std::string_view id) {
  // A copy is walked, without the lock: a sink may raise and subscribe itself.
  const std::string text(id);
  for (IServerEventSink* const sink : raise(kPreferencesModifiedEvent)) sink->onPreferenceModified(text);
}

// Nobody is called for the next two: only the time of the last one is asked for.
void ServerEventManager::notifyLogSent() {
  raise(kLogSentEvent);
}

void ServerEventManager::notifyAccountUpdated() {
  raise(kAccountUpdatedEvent);
}

std::optional<std::int64_t> ServerEventManager::lastRaised(std::string_view eventName) const {
  const MutexLock lock(mutex_);
  const auto found = contexts_.find(eventName);
  if (found == contexts_.end()) return std::nullopt;
  return found->second->lastRaised;
}

}  // namespace zarn
