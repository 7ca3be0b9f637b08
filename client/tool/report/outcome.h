// What the service answered to a call, or why it did not, in words, numbers and an
// exit code. Paths are those that were sent, UTF-8.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "client/tool/report/answer.h"
#include "client/tool/report/service_state.h"
#include "client/update_client.h"
#include "os/system_error.h"
#include "update/status.h"

namespace zarn::tool {

/// To a check; `verify` says the same of what it worked out.
[[nodiscard]] Answer checkAnswer(const std::string& bundle, Status status);

[[nodiscard]] Answer installAnswer(const std::string& bundle, const client::InstallAnswer& answered,
                                   std::chrono::milliseconds elapsed);

/// An empty `directory` was the wish for the service's own.
[[nodiscard]] Answer setAppDataAnswer(const std::string& directory);

/// The failure that a call without an answer is. `service` is what is known of it now.
[[nodiscard]] Answer noAnswer(const client::CallError& error, const Result<ServiceFacts>& service);

/// Adds what a judgement without an installation means, Status::Installed for trusted,
/// and sets the exit code by it. `advice` replaces the status's own, a sentence without
/// a full stop.
void describeVerdict(Answer& answer, Status status,
                     const std::optional<std::string_view>& advice = std::nullopt);

}  // namespace zarn::tool
