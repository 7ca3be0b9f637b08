#include <windows.h>

#include "client/tool/commands.h"
#include "client/tool/service_call_win.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::tool {

Answer runSetAppData(const Arguments& arguments) {
  const bool isReset = arguments.target.empty();
  const std::wstring directory = isReset ? std::wstring() : absolutePath(arguments.target);
  const std::string shown = printable(StringUtils::utf16to8(directory));
  if (!isReset) {
    const DWORD attributes = GetFileAttributesW(directory.c_str());
    const DWORD error = GetLastError();
    // The service may see a folder that its caller may not.
    if (attributes == INVALID_FILE_ATTRIBUTES && error != ERROR_ACCESS_DENIED) {
      return failure(ExitCode::LocalFailure, "There is no such folder: " + shown + ".");
    }
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      return failure(ExitCode::LocalFailure, "This is no folder: " + shown + ".");
    }
  }
  const auto result = client::UpdateClient().setAppDataPath(directory);
  if (!result.ok()) return noAnswer(result.error());
  Answer answer;
  answer.json["directory"] = StringUtils::utf16to8(directory);
  answer.text =
      isReset ? "The service was told to use its own account's folder again.\n"
              : "The service was told: " + shown +
                    "\nIts logs are in \"Zarn Media Server\\Logs\" there, if it could use the folder.\n";
  answer.text += "See zarn-update status.\n";
  return answer;
}

}  // namespace zarn::tool
