// The service's logger. Lines are written through util/logging.h; this header is
// for who starts, stops or moves the log.
//
//   Log::instance().start("Zarn Update Service");
//   ...
//   Log::instance().stop();
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "log/base_log.h"
#include "prefs/preferences.h"
#include "prefs/server_event_manager.h"
#include "util/mutex.h"

namespace zarn {

/// The threshold for which the preferences LogVerbose, logDebug and LogMemoryUse ask.
[[nodiscard]] LogLevel thresholdByPreferences(const Preferences& store);

/// Follows the preferences: they raise the threshold and never lower it again, unless the
/// environment variable ZARN_MEDIA_SERVER_LOG_LEVEL (info, debug or verbose) has fixed it;
/// LogTokensForDebug, LogSynchronous and LogNumFiles take effect both ways.
class Log final : public BaseLog, public IServerEventSink {
 public:
  /// Made on first use, never destroyed; makes itself the process-wide sink.
  [[nodiscard]] static Log& instance();

  /// Uses the process-wide store and event manager, from start() on.
  Log() = default;
  /// Uses others, which must outlive it. `events` must not raise events after its end.
  Log(Preferences& preferences, ServerEventManager& events) : preferences_(&preferences), events_(&events) {}
  ~Log() override;

  /// Runs what it is given, as somebody else.
  using RunAs = std::function<void(const std::function<void()>&)>;

  /// Continues in the directory that the preferences name now: makes it, and
  /// rotates after the next line through the queue, which is usually the line
  /// that this call logs. Folders of the preference's choice are made by `runAs`,
  /// which lends the rights of whoever chose them.
  void moveToCurrentDirectory(const RunAs& runAs = {});

  /// Runs on the writer thread each time a new file is open; the lines it logs are
  /// the file's first. Set it before start().
  void setFileOpenedRoutine(std::function<void()> routine) ZARN_EXCLUDES(routineMutex_);

  /// Copies lines to the collector that the environment variable
  /// ZARN_MEDIA_SERVER_SYSLOG_COLLECTOR names (host:port, an IPv6 address in
  /// brackets) for ZARN_MEDIA_SERVER_SYSLOG_MINUTES minutes. With neither set
  /// nothing happens; a bad value is logged.
  void configureNetworkLoggingFromEnvironment();
  /// Whether one of the two variables is set.
  [[nodiscard]] static bool isNetworkLoggingConfigured();

  void onPreferenceModified(const std::string& id) override;

 protected:
  void createLogDirectories() override { makeDirectories({}); }
  void initializePreferences() override;
  void onLineWritten() override;
  [[nodiscard]] std::string logDirectory() override;
  [[nodiscard]] std::int32_t rotatedFileCount() override;
  [[nodiscard]] std::string accountUserName() override;
  void onFileOpened() override;
  void scrubMessage(std::string& message) override;

 private:
  void makeDirectories(const RunAs& runAs);
  [[nodiscard]] Preferences& preferences() const;
  [[nodiscard]] ServerEventManager& events() const;
  /// Says, once, why the chosen application-data path is not used.
  void readLogPreferences() ZARN_EXCLUDES(readMutex_);

  Preferences* preferences_ = nullptr;
  ServerEventManager* events_ = nullptr;
  std::atomic<bool> showsTokens_{false};
  Mutex readMutex_;  ///< two changes at once must not undo each other
  Mutex routineMutex_;
  std::function<void()> fileOpenedRoutine_ ZARN_GUARDED_BY(routineMutex_);
};

}  // namespace zarn
