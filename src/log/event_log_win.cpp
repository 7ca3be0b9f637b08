#include "log/event_log.h"

#include <windows.h>

#include <memory>
#include <utility>

#include "os/handles.h"
#include "os/text.h"
#include "util/log_win32_error.h"
#include "util/product_names.h"

namespace zarn {
namespace {

static_assert(static_cast<int>(EventLevel::Error) == EVENTLOG_ERROR_TYPE);
static_assert(static_cast<int>(EventLevel::Warning) == EVENTLOG_WARNING_TYPE);
static_assert(static_cast<int>(EventLevel::Information) == EVENTLOG_INFORMATION_TYPE);

struct EventSourceTraits {
  using Handle = HANDLE;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { DeregisterEventSource(handle); }
};
using EventSource = ScopedHandle<EventSourceTraits>;

/// The source is opened for each event: a handle does not outlive the service that has
/// the logs, which may be restarted, and events are few.
Result<void> writeToSystem(const EventFacts& event, std::span<const std::string> insertions) {
  std::vector<std::wstring> texts;
  std::vector<const wchar_t*> pointers;
  texts.reserve(insertions.size());
  pointers.reserve(insertions.size());
  for (const std::string& insertion : insertions)
    texts.push_back(os::wideFromUtf8(insertion).value_or(std::wstring(L"?")));
  for (const std::wstring& text : texts) pointers.push_back(text.c_str());
  const EventSource source(RegisterEventSourceW(nullptr, names::kEventSource.wide));
  if (!source) return lastFailure();
  return resultOf(ReportEventW(source.get(), static_cast<WORD>(event.level), 0, messageId(event), nullptr,
                               static_cast<WORD>(pointers.size()), 0, pointers.data(), nullptr) != 0);
}

class SystemEventWriter final : public EventWriter {
 public:
  void write(const EventFacts& event, std::span<const std::string> insertions) override {
    const auto written = writeToSystem(event, insertions);
    // Once: where one event is not written the next ones seldom are.
    if (written || std::exchange(hasFailed_, true)) return;
    logSystemFailure(LogLevel::Warn, written.error(), "Event %u could not be written to the event log.",
                     static_cast<unsigned>(event.id));
  }

 private:
  bool hasFailed_ = false;
};

}  // namespace

EventReporter& systemEventReporter() {
  static SystemEventWriter& writer = *std::make_unique<SystemEventWriter>().release();
  static EventReporter& reporter = *std::make_unique<EventReporter>(writer).release();
  return reporter;
}

}  // namespace zarn
