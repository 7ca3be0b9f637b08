// Where the service keeps its records of install requests, and reading them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/tool/report/history.h"
#include "client/tool/report/newest_requests.h"
#include "client/tool/report/outcome.h"
#include "client/tool/report/service_state.h"
#include "update/install_record.h"

namespace zarn::tool {

/// Whether a record folder's file is one of the usual four, or has a record for which
/// another could not be written to.
[[nodiscard]] bool isRecordFile(std::string_view name);

/// The service's own record folder; when Logs of another place are `given`, the folder
/// "Record" in there, which collect-logs makes, or else `given` itself. The service's
/// own is refused (kFolderNotTrusted) when others may have written to it.
[[nodiscard]] RecordSource recordSource(const std::string& given);

/// The install request that `service` is working on, by what stands in its record folder;
/// nothing when there is none. Fails when that cannot be told: with kFolderNotTrusted when
/// others may have written to the folder.
[[nodiscard]] Result<std::optional<InstallUnderWay>> installUnderWay(const std::string& folder,
                                                                     const Result<ServiceFacts>& service);

/// What is wanted of the folder's files: of the requests for which an installer ran and the
/// others, or of both in one file. Fails when there is none that can be read.
[[nodiscard]] Result<History> readHistory(const RecordSource& source, const HistoryWish& wish);

/// What the record has of an install request of this process for `path` that began at
/// `begin` (see isoTime()) or later and ended with `status`.
[[nodiscard]] OwnRequest findOwnRequest(const RecordSource& source, const std::string& path,
                                        const std::string& begin, Status status);

}  // namespace zarn::tool
