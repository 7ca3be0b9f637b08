#include "update/install_events.h"

#include <algorithm>

#include "util/events.h"
#include "util/exceptions.h"

namespace zarn {
namespace {

/// Reports with what all events about requests have in common, and `more` behind it.
template <EventId id, typename... Texts>
void reportRequest(const InstallRecord& record, const Texts&... more) {
  const auto number = [](const std::optional<std::uint32_t>& value) {
    return value ? std::to_string(*value) : std::string();
  };
  const Caller& caller = record.caller;
  reportEvent<id>(record.path, caller.sid, caller.image, number(caller.processId), record.signerSubject,
                  record.signerDigest, record.sha256, std::to_string(numberOf(record.status)),
                  number(record.exitCode), more...);
}

void reportRefused(const InstallRecord& record) {
  if (!record.reason.empty())
    return reportRequest<EventId::RequestRefused>(record, "", nameOf(Verdict::NotReached), record.reason);
  const auto stopped = std::find_if(record.checks.begin(), record.checks.end(), [](const CheckRecord& check) {
    return check.verdict != nameOf(Verdict::Passed);
  });
  const CheckRecord check = stopped != record.checks.end() ? *stopped : CheckRecord();
  reportRequest<EventId::RequestRefused>(record, check.name, check.verdict, check.detail);
}

}  // namespace

void reportInstall(const InstallRecord& record) noexcept {
  quietly([&record] {
    if (!record.exitCode) return reportRefused(record);
    if (isSuccess(record.status))
      return reportRequest<EventId::UpdateInstalled>(record, record.product, record.productVersion);
    reportRequest<EventId::InstallFailed>(record, record.product, record.productVersion);
  });
}

void reportRefusal(const Caller& caller, const std::string& path, const char* reason) noexcept {
  quietly([&] {
    InstallRecord record;
    record.caller = caller;
    record.path = path;
    record.reason = reason;
    reportRefused(record);
  });
}

}  // namespace zarn
