// wait: until no update is being installed.
#include <algorithm>
#include <chrono>
#include <thread>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/console.h"
#include "client/tool/machine/record.h"
#include "client/tool/machine/service.h"
#include "client/tool/report/text.h"
#include "client/tool/report/waiting.h"
#include "update/record_folder.h"

namespace zarn::tool {
namespace {

using WaitClock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds kPollInterval(200);

}  // namespace

Answer runWait(const Arguments& arguments) {
  const auto begin = WaitClock::now();
  const auto waited = [&] { return std::chrono::duration_cast<Milliseconds>(WaitClock::now() - begin); };
  const Milliseconds limit = std::chrono::seconds(arguments.seconds);
  ProgressLine progress;
  for (;;) {
    const auto installing = installUnderWay(recordFolderPath(), queryService());
    const Milliseconds elapsed = waited();
    if (!installing || !*installing || elapsed >= limit) {
      progress.clear();
      return waitAnswer(installing, elapsed);
    }
    const auto wholeSeconds = std::chrono::floor<std::chrono::seconds>(elapsed);
    if (progress.isWatched())
      progress.show("An update is being installed, waited " + duration(Milliseconds(wholeSeconds).count()));
    std::this_thread::sleep_for(std::min(kPollInterval, limit - elapsed));
  }
}

}  // namespace zarn::tool
