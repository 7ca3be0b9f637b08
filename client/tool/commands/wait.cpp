// wait: until no update is being installed.
#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/console.h"
#include "client/tool/machine/record.h"
#include "client/tool/machine/service.h"
#include "client/tool/report/progress.h"
#include "client/tool/report/waiting.h"
#include "update/record_folder.h"

namespace zarn::tool {
namespace {

using WaitClock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds kPollInterval(200);
constexpr Milliseconds kServiceInterval(1000);

/// What is being installed. The record is read at each look, which is cheap; the service is
/// asked now and then, and again before it counts as free: it may have been started anew.
class Looker {
 public:
  Result<std::optional<InstallUnderWay>> look() {
    const auto now = WaitClock::now();
    if (now - asked_ >= kServiceInterval) ask(now);
    auto installing = installUnderWay(folder_, service_);
    if (asked_ == now || (installing && *installing)) return installing;
    ask(now);
    return installUnderWay(folder_, service_);
  }

 private:
  void ask(WaitClock::time_point now) {
    service_ = queryService();
    asked_ = now;
  }

  std::string folder_ = recordFolderPath();
  Result<ServiceFacts> service_ = queryService();
  WaitClock::time_point asked_ = WaitClock::now();
};

}  // namespace

Answer runWait(const Arguments& arguments) {
  const auto begin = WaitClock::now();
  const auto waited = [&] { return std::chrono::duration_cast<Milliseconds>(WaitClock::now() - begin); };
  const Milliseconds limit = std::chrono::seconds(arguments.seconds);
  Looker looker;
  ProgressLine progress;
  for (;;) {
    const auto installing = looker.look();
    const Milliseconds elapsed = waited();
    if (!installing || !*installing || elapsed >= limit) {
      progress.clear();
      return waitAnswer(installing, elapsed);
    }
    if (progress.isWatched()) progress.show(waitingText(elapsed));
    std::this_thread::sleep_for(std::min(kPollInterval, limit - elapsed));
  }
}

}  // namespace zarn::tool
