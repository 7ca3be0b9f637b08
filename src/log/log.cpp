#include "log/log.h"

#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "log/network_log.h"
#include "log/token_scrubber.h"
#include "os/process.h"
#include "os/text.h"
#include "util/file_utils.h"
#include "util/io_deadline.h"
#include "util/policy_settings.h"
#include "util/printable.h"
#include "util/product_names.h"

namespace zarn {
LogLevel thresholdByPreferences(const Preferences& store) {
  if (store.get(preference::kLogVerbose)) return LogLevel::Verbose;
  const bool wantsDebug = store.get(preference::kLogDebug) || store.get(preference::kLogMemoryUse);
  return wantsDebug ? LogLevel::Debug : LogLevel::Info;
}

// Never destroyed: threads may log until the process has ended.
Log& Log::instance() {
  static Log& log = []() -> Log& {
    Log& made = *std::make_unique<Log>().release();
    setLogSink(&made);
    return made;
  }();
  return log;
}

Log::~Log() {
  stopQuietly();
}

void Log::moveToCurrentDirectory(const RunAs& runAs) {
  makeDirectories(runAs);
  requestRotation();
  log(LogLevel::Debug, "Log rotation requested.");
}

void Log::setFileOpenedRoutine(std::function<void()> routine) {
  const MutexLock lock(routineMutex_);
  fileOpenedRoutine_ = std::move(routine);
}

bool Log::isNetworkLoggingConfigured() {
  return environmentVariable(names::kSyslogCollectorVariable.narrow) ||
         environmentVariable(names::kSyslogMinutesVariable.narrow);
}

void Log::configureNetworkLoggingFromEnvironment() {
  const auto collectorText = environmentVariable(names::kSyslogCollectorVariable.narrow);
  const auto minutesText = environmentVariable(names::kSyslogMinutesVariable.narrow);
  if (!isNetworkLoggingConfigured()) return;

  const auto refuse = [this](const char* variable, const std::string& text, const char* wanted) {
    log(LogLevel::Error, "Error enabling networked logging: %s.",
        formatPrintf("%s is '%s' and not %s", variable, printable(text), wanted));
  };
  const std::string place = collectorText.value_or("");
  const std::string duration = minutesText.value_or("");
  const auto collector = parseCollector(place);
  const auto minutes = parseCollectorMinutes(duration);
  if (!collector) return refuse(names::kSyslogCollectorVariable.narrow, place, "host:port");
  if (!minutes) return refuse(names::kSyslogMinutesVariable.narrow, duration, "a positive number");
  enableNetworkLogging(collector->host, collector->port, *minutes);
}

// ---- What the logger asks ----------------------------------------------------------

Preferences& Log::preferences() const {
  return preferences_ != nullptr ? *preferences_ : Preferences::instance();
}

ServerEventManager& Log::events() const {
  return events_ != nullptr ? *events_ : ServerEventManager::instance();
}

void Log::makeDirectories(const RunAs& runAs) {
  // The store must be there: the directories depend on the preference LocalAppDataPath.
  static_cast<void>(preferences());
  if (!runAs || !FileUtils::isApplicationDataChosen()) {
    static_cast<void>(FileUtils::makeLogDirectory());
    return;
  }
  const std::string directory = FileUtils::applicationDataDirectory();
  const std::string logs = logDirectory();
  const IoDeadline deadline(kOpenLimit);  // before: another user could not limit this thread
  runAs([&] {
    static_cast<void>(FileUtils::createDirectories(directory) && FileUtils::createDirectories(logs));
  });
}

void Log::initializePreferences() {
  // Before the first reading, so that no change falls between the two.
  events().subscribe(kPreferencesModifiedEvent, *this);
  readLogPreferences();
}

void Log::onPreferenceModified(const std::string& /*id*/) {
  readLogPreferences();
}

void Log::readLogPreferences() {
  const MutexLock lock(readMutex_);
  const Preferences& store = preferences();
  // Looked at by threads that log, without this lock.
  showsTokens_.exchange(store.get(preference::kLogTokensForDebug));

  const LogLevel wanted = chosenLogLevel().value_or(thresholdByPreferences(store));
  // One way only: a threshold once raised stays for the life of the process.
  if (wanted > threshold()) setThreshold(wanted);

  setSynchronous(store.get(preference::kLogSynchronous));
}

void Log::onLineWritten() {
  events().notifyLogSent();
}

std::string Log::logDirectory() {
  return FileUtils::logDirectory();
}

std::int32_t Log::rotatedFileCount() {
  return preferences().get(preference::kLogNumFiles);
}

std::string Log::accountUserName() {
  return preferences().get(preference::kZarnOnlineUsername);
}

void Log::onFileOpened() {
  std::function<void()> routine;
  {
    const MutexLock lock(routineMutex_);
    routine = fileOpenedRoutine_;
  }
  // Called without the lock: the routine logs, and may set another one.
  if (routine) routine();
  // Only here: a path may be refused before there is a file to say so in.
  const std::string refusal = FileUtils::takeRefusalOfAppDataPath();
  if (!refusal.empty()) log(LogLevel::Error, "%s", refusal);
}

void Log::scrubMessage(std::string& message) {
  scrubTokens(message, showsTokens_.load());
}

}  // namespace zarn
