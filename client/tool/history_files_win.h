// Where the service keeps its records of install requests, and reading them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/tool/history.h"
#include "util/product_names.h"

namespace zarn::tool {

/// The files of a record folder: of requests for which an installer ran, then the
/// others; the earlier file first.
inline constexpr std::array<const char*, 4> kRecordFiles = {
    names::kEarlierHistory.narrow, names::kHistory.narrow, names::kEarlierRefused.narrow,
    names::kRefused.narrow};

/// Whether a record folder's file is one of these, or has a record for which another
/// could not be written to.
[[nodiscard]] bool isRecordFile(std::string_view name);

/// A folder with records.
struct RecordSource {
  std::string folder;
  /// 0, or the Win32 error for which the folder cannot be used. One that is missing is
  /// no error here.
  std::uint32_t error = 0;
};

/// The service's own record folder; when Logs of another place are `given`, the folder
/// "Record" in there, which collect-logs makes, or else `given` itself. The service's
/// own is refused (kFolderNotTrusted) when others may have written to it.
[[nodiscard]] RecordSource recordSource(const std::string& given);

/// Why a source cannot be used or read, a clause.
[[nodiscard]] std::string problemText(std::uint32_t error);

struct StoredHistory {
  /// Oldest first.
  History history;
  /// A file is longer than what was read of it, and its oldest records are missing.
  bool cut = false;
  /// 0, or the Win32 error for which a file could not be read; that of a missing file
  /// only when there is none at all.
  std::uint32_t error = 0;
};

/// The last `maximumBytes` of each file in the folder: of the requests for which an
/// installer ran and the others, or of both in one file.
[[nodiscard]] StoredHistory readHistory(const RecordSource& source, std::int64_t maximumBytes);

}  // namespace zarn::tool
