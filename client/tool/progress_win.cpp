#include "client/tool/progress_win.h"

#include <string>

#include "client/tool/service_query_win.h"
#include "client/tool/text.h"

namespace zarn::tool {

void Progress::show(std::int64_t elapsedMilliseconds) {
  if (!watched_) return;
  const ServiceQuery query = queryService();
  const std::string state = query.facts ? query.facts->state : "unknown";
  std::string line = "Installing, " + duration(elapsedMilliseconds - elapsedMilliseconds % 1000) +
                     " so far; the service is " + state;
  const std::size_t width = line.size();
  if (width < shownWidth_) line.append(shownWidth_ - width, ' ');
  shownWidth_ = width;
  write(Stream::Error, "\r" + line);
}

void Progress::clear() {
  if (shownWidth_ != 0) write(Stream::Error, "\r" + std::string(shownWidth_, ' ') + "\r");
  shownWidth_ = 0;
}

}  // namespace zarn::tool
