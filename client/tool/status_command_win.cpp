#include "client/tool/commands.h"
#include "client/tool/service_query_win.h"
#include "client/tool/text.h"
#include "util/printable.h"
#include "util/system_error.h"

namespace zarn::tool {

Answer runStatus(const Arguments& arguments) {
  static_cast<void>(arguments);
  const ServiceQuery query = queryService();
  Answer answer;
  answer.json["state"] = query.facts ? query.facts->state : "unknown";
  answer.text = fields({{"Service", query.facts ? query.facts->state : systemErrorPhrase(query.error)}});
  answer.exitCode = query.facts && query.facts->running ? ExitCode::Success : ExitCode::ServiceUnreachable;
  return answer;
}

}  // namespace zarn::tool
