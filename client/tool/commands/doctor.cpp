#include "client/tool/commands/commands.h"
#include "client/tool/machine/checkup.h"

namespace zarn::tool {

Answer runDoctor(const Arguments& arguments) {
  return doctorAnswer(checkMachine(arguments.offline ? Network::LeaveOut : Network::Use));
}

}  // namespace zarn::tool
