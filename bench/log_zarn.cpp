#include "log/log.h"
#include "log_candidates.h"
#include "prefs/test_preferences.h"
#include "util/file_utils.h"
#include "util/logging.h"

namespace zarn::bench {
namespace {

/// As in the service: with scrubbing, preferences, events and rotation.
class ZarnLog final : public LogCandidate {
 public:
  explicit ZarnLog(const std::string& directory)
      : preferences_(nullptr, events_), log_(preferences_, events_) {
    preferences_.registerCatalogue();
    preferences_.setIntValue("LogNumFiles", kFilesKeptForTheCount);
    FileUtils::setApplicationDataOverride(directory);
    setLogSink(&log_);
    log_.start("bench");
  }
  ~ZarnLog() override { setLogSink(nullptr); }

  void log(const LogMessage& message) override {
    logLine(LogLevel::Info, "#%c%d %s", message.producer, message.number, message.text);
  }
  void flush() override { log_.flush(); }

 private:
  static constexpr int kFilesKeptForTheCount = 100;

  ServerEventManager events_;
  TestPreferences preferences_;
  Log log_;
};

}  // namespace

std::unique_ptr<LogCandidate> makeZarnLog(const std::string& directory) {
  return std::make_unique<ZarnLog>(directory);
}

}  // namespace zarn::bench
