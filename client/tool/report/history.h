// The records of install requests, read and shown. Texts are UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/tool/report/answer.h"
#include "os/system_error.h"
#include "update/install_record.h"

namespace zarn::tool {

/// How many requests are older than those that were wanted.
struct OlderRequests {
  std::size_t count = 0;  ///< 0 when they were not counted
  bool isExact = false;   ///< else there are more
};

/// What files of records hold, or as much of it as was wanted.
struct History {
  std::vector<InstallRecord> records;  // oldest first
  /// Lines that are torn or not ours, among those that were read.
  std::size_t skipped = 0;
  /// A file is longer than what is ever read of it.
  bool isCut = false;
  /// Nothing when there are no others that were wanted but for their age.
  std::optional<OlderRequests> older;
  /// Why one of the files could not be read, while others could; whoever read them says.
  std::optional<SystemError> unread;
};

/// Where records lie, which is said also when they cannot be read.
struct RecordSource {
  std::string folder;
  /// Why the folder cannot be used. One that is missing is no error here.
  Result<void> usable;
  /// The caller named the place, and expects records there.
  bool isGiven = false;
};

/// Why a source cannot be used or read, a clause.
[[nodiscard]] std::string recordProblem(SystemError error);

/// How many requests are shown when nothing is said.
inline constexpr std::uint32_t kUsualRequests = 20;

/// `file` is the one that scripts are told.
[[nodiscard]] Answer historyAnswer(const RecordSource& source, const std::string& file,
                                   Result<History> history);

}  // namespace zarn::tool
