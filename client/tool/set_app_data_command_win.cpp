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
  const DWORD attributes =
      directory.empty() ? INVALID_FILE_ATTRIBUTES : GetFileAttributesW(directory.c_str());
  const bool isFolder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (!isReset && !isFolder) {
    return failure(ExitCode::LocalFailure, "There is no such folder: " + shown + ".");
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
