#include "log/log.h"
#include "prefs/preferences.h"
#include "update/app_data_request.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {

void setLocalAppDataPath(std::wstring_view path) {
  const std::string text = StringUtils::utf16to8(path);
  logLine(LogLevel::Debug, "Setting Local Appdata Path: %s", printable(text));
  Preferences::instance().setStringValue("LocalAppDataPath", text);
  Log::instance().moveToCurrentDirectory();
}

}  // namespace zarn
