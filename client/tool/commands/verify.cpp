#include <memory>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/service.h"
#include "client/tool/machine/verification.h"
#include "prefs/preferences.h"
#include "util/string_utils.h"

namespace zarn::tool {

Answer runVerify(const Arguments& arguments) {
  const std::wstring bundle = absolutePath(arguments.target);
  if (auto problem = missingFile(bundle)) return *problem;
  adoptServiceEnvironment();
  // The service's settings are its account's; this user's must not steer what is worked out here.
  Preferences::useTestStore(true);
  // Never destroyed: the HTTP client's threads may log as long as the process lives.
  const CapturedLog& log = *std::make_unique<CapturedLog>().release();
  return verificationAnswer(StringUtils::utf16to8(bundle), verifyBundle(bundle, log));
}

}  // namespace zarn::tool
