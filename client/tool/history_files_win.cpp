#include "client/tool/history_files_win.h"

#include <windows.h>

#include <algorithm>
#include <iterator>

#include "client/tool/files_win.h"
#include "util/file_utils.h"
#include "util/product_names.h"

namespace zarn::tool {
namespace {

/// True when the file is there and could be read.
bool add(StoredHistory& stored, const std::string& path, std::int64_t maximumBytes) {
  const FileEnd read = readEnd(path, maximumBytes);
  if (isMissing(read.error)) return false;
  if (read.error != 0) stored.error = read.error;
  History history = parseHistory(read.bytes);
  // The first line of what was read may have lost its beginning.
  if (read.cut && history.skipped > 0) --history.skipped;
  stored.cut = stored.cut || read.cut;
  stored.history.skipped += history.skipped;
  std::move(history.records.begin(), history.records.end(), std::back_inserter(stored.history.records));
  return read.error == 0;
}

}  // namespace

StoredHistory readHistory(const std::string& folder, std::int64_t maximumBytes) {
  StoredHistory stored;
  const bool hasEarlier = add(stored, FileUtils::join(folder, names::kEarlierHistory.narrow), maximumBytes);
  const bool hasCurrent = add(stored, FileUtils::join(folder, names::kHistory.narrow), maximumBytes);
  if (!hasEarlier && !hasCurrent && stored.error == 0) stored.error = ERROR_FILE_NOT_FOUND;
  return stored;
}

}  // namespace zarn::tool
