// What the service answered to a call, or why it did not, in words, numbers and an
// exit code. Paths are those that were sent, UTF-8.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "client/tool/report/answer.h"
#include "client/tool/report/outcome_words.h"
#include "client/tool/report/service_state.h"
#include "client/update_client.h"
#include "os/system_error.h"
#include "update/status.h"

namespace zarn::tool {

/// What this program found out by itself of a bundle that the service refused, since checks
/// are not recorded.
struct WorkedOut {
  Status status = Status::Failed;
  std::optional<CheckRecord> decided;  ///< the check that did not pass; nothing when all did
  std::string problem;                 ///< why nothing was found out, a clause; else empty
};

/// To a check. `installRefusal` says why an install would be refused before it comes to the
/// checks that were made, a clause; empty when it would not.
[[nodiscard]] Answer checkAnswer(const std::string& bundle, Status status,
                                 const std::optional<WorkedOut>& found = std::nullopt,
                                 const std::string& installRefusal = {});

/// What the record has of the request that was answered.
struct OwnRequest {
  std::optional<InstallRecord> record;
  std::string problem;  ///< why there is none, a clause; empty when it was not looked for
};

[[nodiscard]] Answer installAnswer(const std::string& bundle, const client::InstallAnswer& answered,
                                   std::chrono::milliseconds elapsed, const OwnRequest& request = {});

/// An empty `directory` was the wish for the service's own.
[[nodiscard]] Answer setAppDataAnswer(const std::string& directory);

/// The failure that a call without an answer is. `service` is what is known of it now.
[[nodiscard]] Answer noAnswer(const client::CallError& error, const Result<ServiceFacts>& service);

/// Adds what a judgement without an installation means, Status::Installed for trusted,
/// and sets the exit code by it. `refusal` replaces the status's own words.
void describeVerdict(Answer& answer, Status status, const std::optional<OutcomeWords>& refusal);

}  // namespace zarn::tool
