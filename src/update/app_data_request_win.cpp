#include "log/log.h"
#include "prefs/preferences.h"
#include "update/app_data_request.h"
#include "update/rpc_caller_win.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {

void setLocalAppDataPath(std::wstring_view path) {
  const std::string text = StringUtils::utf16to8(path);
  logLine(LogLevel::Debug, "Setting Local Appdata Path: %s", printable(text));
  Preferences::instance().set(preference::kLocalAppDataPath, text);
  Log::instance().moveToCurrentDirectory([](const std::function<void()>& make) {
    if (!runAsCaller(make)) logWin32Error(LogLevel::Warn, "The caller lets nobody make folders in its name.");
  });
}

}  // namespace zarn
