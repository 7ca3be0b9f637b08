#include "client/tool/machine/event_log.h"

#include <windows.h>

#include <winevt.h>

#include <array>
#include <chrono>
#include <utility>
#include <vector>

#include "client/tool/machine/within.h"
#include "os/handles.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr std::size_t kMostEvents = 500;
constexpr std::size_t kMostEventBytes = std::size_t{4} << 20;
constexpr std::chrono::seconds kEventLogLimit(10);
constexpr DWORD kNextMilliseconds = 5000;

struct EventTraits {
  using Handle = EVT_HANDLE;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { EvtClose(handle); }
};
using EventHandle = ScopedHandle<EventTraits>;

Result<std::string> xmlOf(const EventHandle& event) {
  DWORD bytes = 0;
  DWORD properties = 0;
  EvtRender(nullptr, event.get(), EvtRenderEventXml, 0, nullptr, &bytes, &properties);
  if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return lastFailure();
  if (bytes > kMostEventBytes) return failure(SystemError(ERROR_INSUFFICIENT_BUFFER));
  std::wstring text(bytes / sizeof(wchar_t) + 1, L'\0');
  if (EvtRender(nullptr, event.get(), EvtRenderEventXml, static_cast<DWORD>(text.size() * sizeof(wchar_t)),
                text.data(), &bytes, &properties) == 0) {
    return lastFailure();
  }
  return StringUtils::utf16to8(text.c_str());
}

Result<std::string> queryEvents() {
  const std::wstring query = std::wstring(L"*[System[Provider[@Name='") + names::kEventSource.wide + L"']]]";
  const EventHandle found(
      EvtQuery(nullptr, L"Application", query.c_str(), EvtQueryChannelPath | EvtQueryReverseDirection));
  if (!found) return lastFailure();
  std::string document = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Events>\n";
  for (std::size_t count = 0; count < kMostEvents; ++count) {
    EventHandle event;
    DWORD returned = 0;
    if (EvtNext(found.get(), 1, event.receive(), kNextMilliseconds, 0, &returned) == 0) {
      if (GetLastError() == ERROR_NO_MORE_ITEMS) break;
      return lastFailure();
    }
    const auto xml = xmlOf(event);
    if (!xml) return failure(xml.error());
    if (document.size() + xml->size() > kMostEventBytes) break;
    document += *xml + "\n";
  }
  return document + "</Events>\n";
}

}  // namespace

Attempt<std::string> newestEvents() {
  auto events = within<Result<std::string>>(kEventLogLimit, queryEvents);
  if (!events) return tl::unexpected(Problem("the event log did not answer in time"));
  if (!*events)
    return tl::unexpected(Problem("the event log cannot be read: " + Problem(events->error()).words));
  return std::move(**events);
}

}  // namespace zarn::tool
