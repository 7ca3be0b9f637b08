// What `doctor` makes of what it saw of the machine. Pure; texts are UTF-8 and not yet fit to
// be shown. docs/zarn-update.md has a row for every check.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/tool/report/findings.h"
#include "client/tool/report/service_state.h"
#include "os/system_error.h"
#include "update/status.h"

namespace zarn::tool {

/// Below this room for a bundle, its private copy and what it unpacks a warning is due.
inline constexpr std::uint64_t kAdvisedRoomBytes = 3 * std::uint64_t{kMaximumBundleBytes};

/// Further apart a clock makes certificates look expired, or not yet valid.
inline constexpr std::int64_t kMostClockSeconds = 300;

[[nodiscard]] Finding judgeService(const Result<ServiceFacts>& service);

/// `problem`: why nobody answered at the service's endpoint; empty when the system did.
[[nodiscard]] Finding judgeEndpoint(const std::string& problem);

/// Whether only the system and administrators may write to the temp folder and the record
/// folder (see checkRecordFolder). Users can bring about that it is not so, and must not keep a
/// package away with that: it is a warning.
[[nodiscard]] Finding judgeTempRights(const std::string& folder, const Result<void>& rights);
[[nodiscard]] Finding judgeRecordFolder(const std::string& folder, const Result<void>& rights);

/// Bytes free for the private copies.
[[nodiscard]] Finding judgeRoom(const std::string& folder, const Result<std::uint64_t>& free);

/// A name that has to be looked up, and what came of that.
struct LookedUp {
  std::string name;
  std::vector<std::string> addresses;
  std::string problem;  ///< a clause; empty when there are addresses
};
/// Wrong when none of them could be looked up; a warning when one of several could not.
[[nodiscard]] Finding judgeLookUps(const std::vector<LookedUp>& names);

/// How the account service answered. Without `approved`, the list was not had, and `reason`,
/// a clause, says why.
struct ListAnswer {
  std::string host;
  std::optional<std::size_t> approved;
  std::uint64_t bytes = 0;
  std::string reason;
  /// This machine's time less the account service's; nothing when that was not said.
  std::optional<std::int64_t> clockAheadSeconds{};
};
[[nodiscard]] Finding judgeList(const ListAnswer& answer);
[[nodiscard]] Finding judgeClock(const ListAnswer& answer);

/// `code`: what the check of a signature answered for `program`, 0 when it was accepted.
[[nodiscard]] Finding judgeRevocation(const std::string& program, std::uint32_t code);

/// Of the service, as it is looked at before it is installed or started: what is wrong with it
/// there is only a warning.
[[nodiscard]] Finding asWarning(Finding finding);

}  // namespace zarn::tool
