#include "client/tool/commands/commands.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/verification.h"
#include "util/string_utils.h"

namespace zarn::tool {

Answer runVerify(const Arguments& arguments) {
  const std::wstring bundle = absolutePath(arguments.target);
  if (auto problem = missingFile(bundle)) return *problem;
  const CapturedLog& log = beginVerification();
  return verificationAnswer(StringUtils::utf16to8(bundle), verifyBundle(bundle, log));
}

}  // namespace zarn::tool
