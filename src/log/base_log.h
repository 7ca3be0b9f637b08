// The logger's machinery: takes lines from any thread, has one writer thread put
// them into rotating files, and copies them to a collector. What depends on the
// service (directories, preferences, events, scrubbing) is left to virtual
// operations; log.h has the logger that the service uses.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "log/log_files.h"
#include "util/io_deadline.h"
#include "util/logging.h"

namespace zarn {

struct LogItem;
struct LogStamp;
class NetworkLog;

inline constexpr std::chrono::milliseconds kNoLimit = std::chrono::milliseconds::max();
/// How long the end of the process waits for the last lines, and then for the writer.
inline constexpr std::chrono::seconds kLastLinesLimit{5};
/// How long a log without a file waits before it tries again to begin one.
inline constexpr std::chrono::seconds kTryAgain{5};

/// How long the logger waits for a disk that may stand still, and how large its files become.
struct LogLimits {
  std::chrono::milliseconds file = kLogFileLimit;         ///< for one line, or one rotation
  std::chrono::milliseconds lastLines = kLastLinesLimit;  ///< before a fatal error ends the process
  std::chrono::milliseconds again = kTryAgain;            ///< from one try to begin a file to the next
  std::uint64_t fileBytes = kMaximumLogFileBytes;         ///< a file that has so many is rotated
};

/// Before start(), and while synchronous, a line is written by the thread that
/// logs it; otherwise by the writer thread. A written line is complete in the
/// file before the next one is taken.
///
/// What the writer has not taken is bounded (log_queue.h): lines beyond are lost, and
/// a line says how many. Memory that runs out costs a line, too, and nothing else.
///
/// A write that does not return within LogLimits::file is cancelled and costs its line. The line after one
/// that was not written whole, on a full disk, say, begins on a line of its own.
///
/// A line that comes while another one is being written outside the queue (from
/// a second thread while synchronous, or from inside the writing itself) is lost.
class BaseLog : public LogSink {
 public:
  explicit BaseLog(const LogLimits& limits = LogLimits());
  BaseLog(const BaseLog&) = delete;
  BaseLog& operator=(const BaseLog&) = delete;
  /// A derived class that was started calls stopQuietly() in its own destructor: the
  /// writer uses its virtual operations.
  ~BaseLog() override;

  /// Makes the directories, reads the preferences and starts the writer, which
  /// begins by rotating. Only the first start does anything. Whatever is thrown
  /// on the way is passed on, with its text left in "Startup Crash.log".
  void start(const std::string& baseName);

  /// Has the writer end after the line that it is writing and close the file. Lines
  /// still queued, and those logged later, are dropped. May be repeated. Returns
  /// whether the writer has ended, which a writer that something holds up does not
  /// within the limit, and which its own thread cannot wait for. With a limit the
  /// thread is never joined: the destructor does that, and so a logger whose writer
  /// may not end must not be destroyed before the process ends.
  bool stop(std::chrono::milliseconds limit = kNoLimit);

  /// Returns when every line logged so far is in the file, at once when there is
  /// no writer to do it. False when that has not come within the limit.
  bool flush(std::chrono::milliseconds limit = kNoLimit);

  /// The files rotate right after the next line that goes through the queue.
  void requestRotation() noexcept;

  [[nodiscard]] bool isSynchronous() const noexcept;
  void setSynchronous(bool synchronous) noexcept;

  /// Copies lines to the syslog collector at `host` (name or address) and UDP
  /// `port` for so many minutes, which must be positive. Resolving a name may wait
  /// for the network. The result is logged either way.
  bool enableNetworkLogging(const std::string& host, std::uint16_t port, std::int32_t minutes);
  void disableNetworkLogging();

  void submit(LogLevel level, std::string_view message) final;
  /// Waits no longer than LogLimits::lastLines for the lines.
  [[noreturn]] void fatal(const std::string& message) final;
  void countLost() noexcept final;

 protected:
  // The writer thread, or the thread that writes a line, calls these.

  /// Makes sure that the directory of the files exists. Also called by start().
  virtual void createLogDirectories() = 0;
  /// Called once, by start(), before the writer runs.
  virtual void initializePreferences() {}
  /// Called for each line that passed, scrubbed, before it goes to the file. Lines
  /// logged from here are dropped.
  virtual void onLineWritten() {}
  [[nodiscard]] virtual std::string logDirectory() = 0;
  /// How many older files are kept. Asked at every rotation.
  [[nodiscard]] virtual std::int32_t rotatedFileCount() = 0;
  /// Stands in records for the collector.
  [[nodiscard]] virtual std::string accountUserName() = 0;
  /// A new file is open and empty. Lines logged from here are its first ones.
  virtual void onFileOpened() = 0;
  /// Takes secrets out of a message, in place.
  virtual void scrubMessage(std::string& message) = 0;
  /// Closes the file, rotates the files and begins a new one. When that fails there is no
  /// file until the next rotation, or until a new one could be begun after LogLimits::again.
  virtual void rotateAndReopen();

  /// stop(), for destructors.
  void stopQuietly() noexcept;

  /// As enableNetworkLogging(), until a time in seconds since the epoch, with
  /// nothing logged. Throws a std::exception on failure.
  void startNetworkLog(const std::string& host, std::uint16_t port, std::int64_t expiry);

  /// Logs through this logger, whatever the process-wide sink is.
  template <typename... Args>
  void log(LogLevel level, PrintfFormat<std::type_identity_t<Args>...> format, const Args&... args) {
    if (isEnabled(level)) submit(level, formatPrintf<Args...>(format, args...));
  }

 private:
  struct State;

  void beginFile();
  void beginFileAgain();
  void startWriter();
  void writerMain();
  template <typename Step>
  void guarded(Step step) noexcept;
  [[nodiscard]] bool isQueueing() const noexcept;
  void writeAtOnce(const LogStamp& stamp, std::string_view prefix, std::string_view message);
  void writeBatch(std::span<LogItem> items, IoDeadline& deadline);
  bool writeLine(LogItem& item);
  void sendToCollector(NetworkLog& network, const LogItem& item);
  void writeStartupCrashLog(std::string_view reason) noexcept;

  const std::unique_ptr<State> state_;
};

}  // namespace zarn
