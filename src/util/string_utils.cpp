#include "util/string_utils.h"

#include "os/text.h"
#include "util/logging.h"

// An empty text stands for one that cannot be converted: callers pass it on to the system,
// which refuses it, and the line says why.
namespace zarn::StringUtils {

std::wstring utf8to16(std::string_view text) {
  auto wide = os::wideFromUtf8(text);
  if (wide) return std::move(*wide);
  logLine(LogLevel::Error, "utf8to16: MultiByteToWideChar failed: %d", wide.error().reported());
  return {};
}

std::string utf16to8(std::wstring_view text) {
  auto narrow = os::utf8FromWide(text);
  if (narrow) return std::move(*narrow);
  logLine(LogLevel::Error, "utf16to8: WideCharToMultiByte failed: %d", narrow.error().reported());
  return {};
}

}  // namespace zarn::StringUtils
