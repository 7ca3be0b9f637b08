#include "client/tool/commands/commands.h"
#include "client/tool/machine/checkup.h"

namespace zarn::tool {

Answer runDoctor(const Arguments&) {
  return doctorAnswer(checkConfiguration());
}

}  // namespace zarn::tool
