// Events: what an administrator hears of this service in the system's event log, beside
// the log's lines, which are for whoever looks into one machine.
//
//   reportEvent<EventId::AppDataPathNotUsed>(path, reason);
//
// They go to the process-wide EventSink, which is log/event_reporter.h in the service;
// programs without one, such as zarn-update, report nothing. Texts are UTF-8 and may be
// what others chose: the sink makes them fit to be shown.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace zarn {

/// Administrators filter by these numbers: one that was used keeps its meaning, its level
/// and the order of its insertions for good.
enum class EventId : std::uint16_t {
  UpdateInstalled = 1000,
  InstallFailed = 1001,
  RequestRefused = 1002,
  EventsOmitted = 1003,
  ApprovalListNotHad = 1010,
  AppDataPathNotUsed = 1011,
  StartFailed = 1020,
  FatalEnd = 1021,
};

/// With the numbers that the system has for them.
enum class EventLevel : std::uint8_t { Error = 1, Warning = 2, Information = 4 };

struct EventFacts {
  EventId id;
  EventLevel level;
  /// So many within a minute are written; further ones are summed up in one EventsOmitted,
  /// which each id has of its own.
  std::uint32_t perMinute;
  /// What its inserted strings are, in their order, separated by ", ".
  std::string_view insertions;
};

/// In the order of the ids. The message of each, in English, is in src/app/events.mc.
inline constexpr std::array<EventFacts, 8> kEvents = {{
    {EventId::UpdateInstalled, EventLevel::Information, 10,
     "path, caller's SID, caller's program, caller's process id, signer's subject, signer's digest, SHA-256, "
     "status, exit code, product, product version"},
    {EventId::InstallFailed, EventLevel::Error, 10,
     "path, caller's SID, caller's program, caller's process id, signer's subject, signer's digest, SHA-256, "
     "status, exit code, product, product version"},
    {EventId::RequestRefused, EventLevel::Warning, 10,
     "path, caller's SID, caller's program, caller's process id, signer's subject, signer's digest, SHA-256, "
     "status, exit code, check, verdict, reason"},
    {EventId::EventsOmitted, EventLevel::Warning, 1, "number of events, their id"},
    {EventId::ApprovalListNotHad, EventLevel::Warning, 2, "account service, reason"},
    {EventId::AppDataPathNotUsed, EventLevel::Warning, 2, "path, reason"},
    {EventId::StartFailed, EventLevel::Error, 2, "code, reason"},
    {EventId::FatalEnd, EventLevel::Error, 2, "exit code, reason"},
}};

[[nodiscard]] constexpr const EventFacts& factsOf(EventId id) noexcept {
  return *std::find_if(kEvents.begin(), kEvents.end() - 1,
                       [id](const EventFacts& facts) { return facts.id == id; });
}

[[nodiscard]] constexpr std::size_t insertionCount(const EventFacts& facts) noexcept {
  return static_cast<std::size_t>(std::count(facts.insertions.begin(), facts.insertions.end(), ',')) + 1;
}

/// The id with its severity above it, as the message table and the system's call know it.
[[nodiscard]] constexpr std::uint32_t messageId(const EventFacts& facts) noexcept {
  const std::uint32_t severity = facts.level == EventLevel::Error     ? 3
                                 : facts.level == EventLevel::Warning ? 2
                                                                      : 1;
  return (severity << 30U) | static_cast<std::uint32_t>(facts.id);
}

/// Where events go. All operations may be called from any thread, and neither waits for
/// the event log.
class EventSink {
 public:
  /// Has as many texts as the event has insertions; an empty one is not known.
  virtual void take(EventId id, std::span<const std::string_view> insertions) noexcept = 0;
  /// Returns when all events so far are written, or after `limit`: false then.
  virtual bool flush(std::chrono::milliseconds limit) noexcept = 0;

 protected:
  ~EventSink() = default;
};

/// Makes `sink` the destination of all events from here on (null: nowhere) and returns the
/// one before. The sink must outlive every thread that reports.
EventSink* setEventSink(EventSink* sink) noexcept;
[[nodiscard]] EventSink* eventSink() noexcept;

/// Reports one event; costs its texts' copies and nothing that waits.
template <EventId id, typename... Texts>
void reportEvent(const Texts&... insertions) noexcept {
  static_assert(factsOf(id).id == id && sizeof...(insertions) == insertionCount(factsOf(id)));
  const std::array<std::string_view, sizeof...(insertions)> texts = {std::string_view(insertions)...};
  if (EventSink* const sink = eventSink()) sink->take(id, texts);
}

/// How long the end of the process waits for the last events.
inline constexpr std::chrono::seconds kLastEventsLimit{2};

/// Waits for the events so far, no longer than `limit`.
void flushEvents(std::chrono::milliseconds limit) noexcept;

}  // namespace zarn
