// The in-process event bus: sinks subscribe to events by name.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "util/mutex.h"

namespace zarn {

/// Raised with the identifier of the preference that changed.
inline constexpr std::string_view kPreferencesModifiedEvent = "zarn.event.preferences.modified";
inline constexpr std::string_view kLogSentEvent = "zarn.event.log.sent";
inline constexpr std::string_view kAccountUpdatedEvent = "zarn.event.myzarn.user.account.updated";

/// What can happen to whom it concerns. Override what you handle. Called on the
/// thread that raised the event, possibly from several threads at once, with no
/// lock of the manager held: reading and writing preferences, raising and
/// subscribing are all allowed. An exception ends the delivery and reaches the raiser.
class IServerEventSink {
 public:
  IServerEventSink() = default;
  IServerEventSink(const IServerEventSink&) = delete;
  IServerEventSink& operator=(const IServerEventSink&) = delete;
  virtual ~IServerEventSink() = default;

  virtual void onServerStarted() {}
  virtual void onServerStopping() {}
  virtual void onAccountUpdated() {}
  virtual void onLogSent() {}
  virtual void onPreferenceModified(const std::string& id) { static_cast<void>(id); }
};

/// All operations may be called from any thread.
class ServerEventManager final {
 public:
  ServerEventManager() = default;
  ServerEventManager(const ServerEventManager&) = delete;
  ServerEventManager& operator=(const ServerEventManager&) = delete;

  /// The process-wide manager; made on first use, never destroyed.
  [[nodiscard]] static ServerEventManager& instance();

  /// `sink` is not owned and must outlive the manager: there is no way to
  /// unsubscribe. Subscribing twice is subscribing once.
  void subscribe(std::string_view eventName, IServerEventSink& sink) ZARN_EXCLUDES(mutex_);

  /// Calls onPreferenceModified on the event's subscribers, in the order of their
  /// addresses. Sinks that subscribe meanwhile are not called for this event.
  void notifyPreferencesModified(std::string_view id) ZARN_EXCLUDES(mutex_);

  /// Records the event's time; calls no sink.
  void notifyLogSent() ZARN_EXCLUDES(mutex_);

  /// Records the event's time; calls no sink. Virtual: the account code of the
  /// server reaches it through the object alone.
  virtual void notifyAccountUpdated() ZARN_EXCLUDES(mutex_);

  /// Seconds since 1970 of the last raise, 0 while the event has only
  /// subscribers; nothing for an event that never came up.
  [[nodiscard]] std::optional<std::int64_t> lastRaised(std::string_view eventName) const
      ZARN_EXCLUDES(mutex_);

 private:
  using Sinks = std::set<IServerEventSink*, std::less<>>;

  struct EventContext {
    std::int64_t lastRaised = 0;
    Sinks sinks;
  };

  EventContext& context(std::string_view eventName) ZARN_REQUIRES(mutex_);
  /// Records the time and answers who is subscribed now.
  Sinks raise(std::string_view eventName) ZARN_EXCLUDES(mutex_);

  std::map<std::string, std::shared_ptr<EventContext>, std::less<>> contexts_ ZARN_GUARDED_BY(mutex_);
  mutable RecursiveMutex mutex_;
};

}  // namespace zarn
