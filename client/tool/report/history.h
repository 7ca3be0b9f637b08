// The records of install requests, read and shown. Texts are UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/tool/report/answer.h"
#include "os/system_error.h"
#include "update/install_record.h"

namespace zarn::tool {

/// What one file of records holds, or several of them together.
struct History {
  std::vector<InstallRecord> records;  // oldest first
  /// Lines that are torn or not ours.
  std::size_t skipped = 0;
  /// A file is longer than what was read of it, and its oldest records are missing.
  bool isCut = false;
  /// Why one of the files could not be read, while others could; whoever read them says.
  std::optional<SystemError> unread;
};

/// Reads the end of a file. With `isCut` its first line has lost its beginning, which
/// is no torn line then.
[[nodiscard]] History parseHistory(std::string_view text, bool isCut = false);

/// A file's records behind those of the file before it.
void append(History& earlier, History later);
/// Both, oldest first; each keeps the order that it has, also when a clock was put back.
[[nodiscard]] History mergeByTime(History one, History other);

/// The first check that did not pass; null when all did, as when an installer ran.
[[nodiscard]] const CheckRecord* decidingCheck(const InstallRecord& record) noexcept;

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

/// The newest `last` requests, all for 0. `file` is the one that scripts are told.
[[nodiscard]] Answer historyAnswer(const RecordSource& source, const std::string& file,
                                   Result<History> history, std::uint32_t last);

}  // namespace zarn::tool
