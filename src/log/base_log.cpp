#include "log/base_log.h"

#include <atomic>
#include <boost/thread/thread.hpp>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>

#include "log/log_line.h"
#include "log/log_queue.h"
#include "log/network_log.h"
#include "os/clock.h"
#include "os/process.h"
#include "util/events.h"
#include "util/exceptions.h"
#include "util/io_deadline.h"
#include "util/mutex.h"
#include "util/printable.h"

namespace zarn {

// Who owns what: the writer thread owns the rotation and everything that says "only for
// whoever rotates"; the thread that writes a line, mostly the writer too, owns what
// writeMutex guards. Callers reach the queue, the atomics and nothing else.
struct BaseLog::State {
  explicit State(const LogLimits& waits) noexcept : limits(waits) {}

  const LogLimits limits;
  Mutex nameMutex;  ///< held for the whole of start()
  std::string baseName;
  std::atomic<bool> isNamed{false};  ///< baseName is set and does not change any more

  LogQueue queue;
  Mutex threadMutex;
  boost::thread thread ZARN_GUARDED_BY(threadMutex);
  std::atomic<bool> hasWriter{false};            ///< stays set after the writer has ended
  std::atomic<std::uint32_t> writerThreadId{0};  ///< 0 while no writer runs

  std::atomic<bool> synchronous{false};
  std::atomic<std::uint64_t> bytesWritten{0};  ///< above the maximum when a rotation is due
  std::atomic<std::uint64_t> fileBytes{0};     ///< to the file since it was opened or emptied
  std::string folderPath;                      ///< where the file is; only for whoever rotates
  bool hasFile = false;                        ///< likewise
  bool isRotated = false;                      ///< and no file has been begun since; likewise
  LogQueue::Clock::time_point nextTry;         ///< to begin a file when there is none; likewise

  // Two lines at once is rare and may cost one of them, so this is looked at and
  // set in two steps; atomic only so that both steps are well defined.
  std::atomic<bool> writing{false};
  RecursiveMutex writeMutex;  ///< held while one line is written
  NetworkLog network ZARN_GUARDED_BY(writeMutex);

  LogLineRenderer renderer ZARN_GUARDED_BY(writeMutex);
  std::weak_ptr<std::FILE> tornFile ZARN_GUARDED_BY(writeMutex);  ///< may end inside a line

  // Rotation does not hold the write mutex: a line that comes meanwhile finds no
  // file. Held to take or change the file, never while it is written or files are
  // moved, so that a write that does not return holds up nobody else.
  Mutex fileMutex;
  std::shared_ptr<std::FILE> file ZARN_GUARDED_BY(fileMutex);

  /// Empty before the start.
  [[nodiscard]] std::string name() const {
    return isNamed.load(std::memory_order_acquire) ? baseName : std::string();
  }
  [[nodiscard]] bool isWriter(std::uint32_t threadId) const noexcept {
    return threadId == writerThreadId.load(std::memory_order_relaxed);
  }

  [[nodiscard]] std::shared_ptr<std::FILE> currentFile() ZARN_EXCLUDES(fileMutex) {
    const MutexLock lock(fileMutex);
    return file;
  }
  bool writeToFile(const LogItem& item) ZARN_REQUIRES(writeMutex);
  /// A file that cannot be rotated begins anew when it is full: callers who keep its
  /// folder from us must not fill the disk.
  void boundFile() ZARN_EXCLUDES(fileMutex) {
    const std::shared_ptr<std::FILE> current = currentFile();
    if (!current || fileBytes.load(std::memory_order_relaxed) < limits.fileBytes) return;
    if (os::emptyFile(*current)) fileBytes.store(0, std::memory_order_relaxed);
  }
  /// Closing may take as long as its disk likes, so that it happens outside the lock.
  void closeFile() ZARN_EXCLUDES(fileMutex) {
    std::shared_ptr<std::FILE> closing;
    const MutexLock lock(fileMutex);
    closing.swap(file);
  }
};

namespace {

class FlagReset {
 public:
  explicit FlagReset(std::atomic<bool>& flag) noexcept : flag_(flag) {}
  FlagReset(const FlagReset&) = delete;
  FlagReset& operator=(const FlagReset&) = delete;
  ~FlagReset() { flag_.store(false, std::memory_order_relaxed); }

 private:
  std::atomic<bool>& flag_;
};

LogStamp stampNow(LogLevel level) {
  return {level, currentThreadId(), os::wallTime()};
}

LogQueue::Clock::time_point endOf(std::chrono::milliseconds limit) {
  return limit == kNoLimit ? LogQueue::Clock::time_point::max() : LogQueue::Clock::now() + limit;
}

}  // namespace

BaseLog::BaseLog(const LogLimits& limits) : state_(std::make_unique<State>(limits)) {}

BaseLog::~BaseLog() {
  stopQuietly();
}

// ---- Start and stop ------------------------------------------------------------

void BaseLog::start(const std::string& baseName) {
  const MutexLock lock(state_->nameMutex);
  if (state_->isNamed.load(std::memory_order_relaxed)) return;
  try {
    createLogDirectories();
    state_->baseName = baseName;
    state_->isNamed.store(true, std::memory_order_release);
    initializePreferences();
    startWriter();
  } catch (const std::exception& error) {
    writeStartupCrashLog(error.what());
    throw;
  } catch (...) {
    writeStartupCrashLog("unknown exception");
    throw;
  }
}

void BaseLog::startWriter() {
  const MutexLock lock(state_->threadMutex);
  state_->thread = boost::thread([this] { writerMain(); });
  state_->hasWriter.store(true, std::memory_order_release);
}

void BaseLog::writeStartupCrashLog(std::string_view reason) noexcept {
  // The failure that is reported, here and to the caller, is the first one.
  quietly([this] { createLogDirectories(); });  // perhaps they are there all the same
  quietly([&] { LogFiles::writeStartupCrash(logDirectory(), reason); });
}

bool BaseLog::stop(std::chrono::milliseconds limit) {
  state_->queue.stop();
  if (state_->isWriter(currentThreadId())) return false;
  if (!state_->hasWriter.load(std::memory_order_acquire)) return true;
  if (!state_->queue.waitForWriter(endOf(limit))) return false;
  // The system may hold up a thread's end, too, which no limit could bound.
  if (limit != kNoLimit) return true;
  const MutexLock lock(state_->threadMutex);
  if (state_->thread.joinable()) state_->thread.join();
  return true;
}

void BaseLog::stopQuietly() noexcept {
  quietly([this] { stop(); });
}

// ---- Lines come in ---------------------------------------------------------------

void BaseLog::submit(LogLevel level, std::string_view message) {
  const std::string_view prefix = logTagPrefix();
  const LogStamp stamp = stampNow(level);
  if (isQueueing() && !state_->isWriter(stamp.threadId)) return state_->queue.push(stamp, prefix, message);
  try {
    writeAtOnce(stamp, prefix, message);
  } catch (const std::bad_alloc&) {
    countLost();
  }
}

void BaseLog::countLost() noexcept {
  state_->queue.countLost();
}

void BaseLog::writeAtOnce(const LogStamp& stamp, std::string_view prefix, std::string_view message) {
  LogItem item{stamp, std::string(prefix).append(message)};
  const bool mayHaveFile = state_->hasWriter.load(std::memory_order_acquire);
  std::optional<IoDeadline> deadline;
  if (mayHaveFile && !state_->isWriter(stamp.threadId))
    deadline.emplace(state_->limits.file);  // the writer has one
  writeLine(item);
}

bool BaseLog::isQueueing() const noexcept {
  return !isSynchronous() && state_->hasWriter.load(std::memory_order_acquire);
}

bool BaseLog::flush(std::chrono::milliseconds limit) {
  if (!state_->hasWriter.load(std::memory_order_acquire) || state_->isWriter(currentThreadId())) return true;
  return state_->queue.flush(endOf(limit));
}

void BaseLog::fatal(const std::string& message) {
  // The process ends all the same, and the lines before this one are written even
  // when there is no memory for it.
  quietly([&] { submit(LogLevel::Error, "FATAL ERROR: " + message); });
  reportEvent<EventId::FatalEnd>("0xC0DEDEAD", message);
  quietly([this] { flush(state_->limits.lastLines); });
  flushEvents(kLastEventsLimit);
  os::endAfterFatalError();
}

void BaseLog::requestRotation() noexcept {
  state_->bytesWritten.store(state_->limits.fileBytes + 1, std::memory_order_relaxed);
}

bool BaseLog::isSynchronous() const noexcept {
  return state_->synchronous.load(std::memory_order_relaxed);
}

void BaseLog::setSynchronous(bool synchronous) noexcept {
  state_->synchronous.exchange(synchronous);
}

// ---- The writer ------------------------------------------------------------------

void BaseLog::writerMain() {
  State& state = *state_;
  state.writerThreadId.store(currentThreadId());
  IoDeadline deadline(state.limits.file);
  guarded([this] { rotateAndReopen(); });
  deadline.disarm();

  LogQueue::Batch batch;
  while (state.queue.take(batch)) {
    deadline.arm();
    writeBatch(batch.items(), deadline);
    deadline.disarm();
  }
  // The order matters: whoever waits for the writer is woken last, when the file is closed.
  state.closeFile();
  state.writerThreadId.store(0);
  state.queue.finish();
}

void BaseLog::writeBatch(std::span<LogItem> items, IoDeadline& deadline) {
  State& state = *state_;
  for (LogItem& item : items) {
    if (state.queue.isStopping()) return;
    // Only what was written puts the deadline off: once it has passed, the lines
    // behind do not wait for the same disk as long as the first one did.
    guarded([this] { beginFileAgain(); });
    guarded([&] {
      if (writeLine(item)) deadline.renew();
    });
    if (state.bytesWritten.load(std::memory_order_relaxed) < state.limits.fileBytes) continue;
    if (state.queue.isStopping()) return;
    deadline.renew();
    guarded([this] { rotateAndReopen(); });
  }
}

/// Runs one step; what it throws is logged and costs no more than this step.
template <typename Step>
void BaseLog::guarded(Step step) noexcept {
  try {
    step();
  } catch (const std::exception& error) {
    try {
      log(LogLevel::Error, "Error: Exception in the log writer: %s, type: %s", printable(error.what()),
          typeName(error));
    } catch (...) {
      countLost();
    }
  } catch (...) {  // NOLINT(bugprone-empty-catch): nothing is known of it
  }
}

/// False when the file did not take the line.
bool BaseLog::writeLine(LogItem& item) {
  State& state = *state_;
  if (!isEnabled(item.level)) return true;  // the threshold may have changed in the queue
  if (state.writing.load(std::memory_order_relaxed)) return true;
  state.writing.store(true, std::memory_order_relaxed);
  const FlagReset reset(state.writing);
  const MutexLock lock(state.writeMutex);

  // First of all: what follows hands the message to others.
  scrubMessage(item.message);
  sendToCollector(state.network, item);
  onLineWritten();
  return state.writeToFile(item);
}

bool BaseLog::State::writeToFile(const LogItem& item) {
  const std::shared_ptr<std::FILE> current = currentFile();
  if (!current) return true;
  const std::string_view line = renderer.render(item);
  bytesWritten.fetch_add(line.size(), std::memory_order_relaxed);
  fileBytes.fetch_add(line.size(), std::memory_order_relaxed);
  // A write that failed, as on a full disk, is nothing to log, but may have left half a line.
  const bool endsLine = tornFile.lock() != current || os::writeThrough(*current, "\n");
  const bool isWritten = endsLine && os::writeThrough(*current, line);
  if (isWritten) {
    tornFile.reset();
  } else {
    tornFile = current;
  }
  return isWritten;
}

void BaseLog::rotateAndReopen() {
  State& state = *state_;
  // Before the directory is looked up: a request that comes with a new directory
  // while this rotation runs must not be forgotten.
  state.bytesWritten.store(0, std::memory_order_relaxed);
  state.isRotated = false;
  beginFile();
}

/// A disk that was full, or a file that somebody held, is no reason to log nothing for good.
void BaseLog::beginFileAgain() {
  State& state = *state_;
  if (state.hasFile || LogQueue::Clock::now() < state.nextTry) return;
  if (state.folderPath.empty()) createLogDirectories();
  beginFile();
}

void BaseLog::beginFile() {
  State& state = *state_;
  state.nextTry = LogQueue::Clock::now() + state.limits.again;
  // Before the file is closed: a look-up that fails ends the process and says so there.
  const std::string directory = logDirectory();
  // Callers may choose the directory: nothing in it is opened, renamed or deleted but
  // by the handle of what it was found to be.
  auto folder =
      FileUtils::HeldFolder::hold(directory, FileUtils::Links::Follow, FileUtils::OwnPlaces::Refuse);
  if (!folder) {  // the log goes on where it is
    log(LogLevel::Error, "safe_fopen: CreateFileW for '%s' failed: %d",
        printable(LogFiles::path(directory, state.name(), 0)), folder.error().code());
    if (state.folderPath.empty()) return;
    folder =
        FileUtils::HeldFolder::hold(state.folderPath, FileUtils::Links::Refuse, FileUtils::OwnPlaces::Refuse);
    if (!folder) return state.boundFile();
  }
  state.closeFile();
  state.hasFile = false;
  FileUtils::ScopedFile file = LogFiles::begin(*folder, state.name(), rotatedFileCount(), state.isRotated);
  if (!file) return;
  state.folderPath = folder->path();
  state.isRotated = false;
  state.fileBytes.store(0, std::memory_order_relaxed);
  {
    const MutexLock lock(state.fileMutex);
    state.file = std::move(file);
  }
  state.hasFile = true;
  onFileOpened();
}

// ---- The collector -----------------------------------------------------------------

void BaseLog::sendToCollector(NetworkLog& network, const LogItem& item) {
  if (!network.isOn()) return;
  if (!network.isExpired(os::wallTime().seconds)) {
    // What fails here does not keep the line out of the file.
    quietly([&] { network.send(item.level, state_->name(), accountUserName(), item.message); });
    return;
  }
  network.stop();
  // Queued even by the writer, whose own lines would be written, and so lost, here.
  if (!isQueueing() || !isEnabled(LogLevel::Debug)) return;
  state_->queue.push(stampNow(LogLevel::Debug), {}, "Time is up, disabling networked logging.");
}

void BaseLog::startNetworkLog(const std::string& host, std::uint16_t port, std::int64_t expiry) {
  auto socket = std::make_unique<CollectorSocket>(host, port);
  const MutexLock lock(state_->writeMutex);
  state_->network.start(std::move(socket), expiry);
}

bool BaseLog::enableNetworkLogging(const std::string& host, std::uint16_t port, std::int32_t minutes) {
  constexpr std::int64_t secondsPerMinute = 60;
  try {
    if (minutes < 1) throw std::invalid_argument("the number of minutes must be positive");
    startNetworkLog(host, port, os::wallTime().seconds + minutes * secondsPerMinute);
  } catch (const std::exception& error) {
    quietly([&] { log(LogLevel::Error, "Error enabling networked logging: %s.", printable(error.what())); });
    return false;
  }
  log(LogLevel::Info, "Enabling networked logging for %d minutes.", minutes);
  return true;
}

void BaseLog::disableNetworkLogging() {
  const MutexLock lock(state_->writeMutex);
  state_->network.stop();
}

}  // namespace zarn
