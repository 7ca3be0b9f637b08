#include "client/tool/commands/commands.h"
#include "client/tool/machine/checkup.h"

namespace zarn::tool {

// Without --offline it does the same: no check uses the network yet.
Answer runDoctor(const Arguments&) {
  return doctorAnswer(checkConfiguration());
}

}  // namespace zarn::tool
