// What became of a request, and what to do about it: by the installer's own code where one
// ran, by the check that decided where none did, and by the status alone where no more is
// known. Texts are UTF-8; what others wrote is not yet fit to be shown.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/tool/report/answer.h"
#include "update/install_record.h"

namespace zarn::tool {

struct OutcomeWords {
  std::string meaning;  ///< a clause without a full stop
  std::string advice;   ///< a sentence without a full stop; empty when there is none
};

/// The first check that did not pass; null when all did, as when an installer ran.
[[nodiscard]] const CheckRecord* decidingCheck(const InstallRecord& record) noexcept;

/// Of a request that is recorded.
[[nodiscard]] OutcomeWords outcomeWords(const InstallRecord& record);

/// Of an answer of which nothing but the status is known. One that is none of the
/// service's is an error of the system.
[[nodiscard]] OutcomeWords statusWords(Status status);

/// Of a failure by an installer's exit code, or by the system's error for which it could
/// not be started. `wasStarted` says which of the two, if that is known.
[[nodiscard]] OutcomeWords installerFailure(std::uint32_t code, std::optional<bool> wasStarted);

/// Of a refusal by the check that decided it. Nothing when the check is not known here or
/// its detail says no more than the status does, as in records of older versions.
[[nodiscard]] std::optional<OutcomeWords> checkWords(const CheckRecord& decided);

/// The same as an object: `name`, `verdict`, `detail` and `source`, which says where it
/// comes from; null without one.
[[nodiscard]] Json decidedByObject(const CheckRecord* decided, const char* source);

}  // namespace zarn::tool
