#include "http/http_client_runner.h"

#include <chrono>
#include <exception>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "http/elastic_thread_pool.h"
#include "http/http_transfer.h"
#include "os/process.h"
#include "util/exceptions.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {
namespace {

constexpr int kPollMilliseconds = 60'000;

/// A failed poll returns at once, and so does what finds no memory; without a pause
/// their log lines would fill the disk.
constexpr std::chrono::milliseconds kPauseAfterFailure{100};

// Completion is short work, so that one thread mostly does, and it stays to spare
// the next request a thread's start. More are for continuations that block, and
// eight of those at once is more than the service ever has.
constexpr std::size_t kPoolLowerBound = 1;
constexpr std::size_t kPoolMaxThreads = 8;

// The runner's thread and the pool's, where easy handles are cleaned up, use the
// share handle at the same time.
void lockShare(CURL* /*handle*/, curl_lock_data data, curl_lock_access /*access*/, void* locks) noexcept {
  (*static_cast<std::array<os::Lock, CURL_LOCK_DATA_LAST>*>(locks))[data].lock();
}
void unlockShare(CURL* /*handle*/, curl_lock_data data, void* locks) noexcept {
  (*static_cast<std::array<os::Lock, CURL_LOCK_DATA_LAST>*>(locks))[data].unlock();
}

template <typename Handle>
Handle required(Handle handle) {
  if (!handle) throw std::bad_alloc();
  return handle;
}

std::string messageOf(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& error) {
    return printable(error.what());
  } catch (...) {
    return "unknown exception";
  }
}

}  // namespace

HttpClientRunner& HttpClientRunner::instance() {
  static HttpClientRunner& runner = *std::make_unique<HttpClientRunner>().release();
  return runner;
}

HttpClientRunner::HttpClientRunner(std::size_t maxPending, Idle /*threadNotStarted*/)
    : maxPending_(maxPending) {
  initializeCurl();
  multi_ = required(MultiHandle(curl_multi_init()));
  // libcurl makes a handle without what it is woken by, too. Requests would wait for a poll's end.
  CURLException::throwOnFailure(curl_multi_wakeup(multi_.get()));
  share_ = required(ShareHandle(curl_share_init()));
  pool_ = std::make_unique<ElasticThreadPool>(kPoolLowerBound, kPoolMaxThreads);
  pool_->makeLowerBound();  // a completion that nobody runs would let its requester wait for ever
}

// From here on the destructor runs, and stops the thread, should anything throw.
HttpClientRunner::HttpClientRunner(std::size_t maxPending) : HttpClientRunner(maxPending, Idle()) {
  thread_ = std::thread(&HttpClientRunner::run, this);

  CURLException::throwOnFailure(curl_share_setopt(share_.get(), CURLSHOPT_USERDATA, &shareLocks_));
  CURLException::throwOnFailure(curl_share_setopt(share_.get(), CURLSHOPT_LOCKFUNC, lockShare));
  CURLException::throwOnFailure(curl_share_setopt(share_.get(), CURLSHOPT_UNLOCKFUNC, unlockShare));
  for (const auto data : {CURL_LOCK_DATA_DNS, CURL_LOCK_DATA_SSL_SESSION, CURL_LOCK_DATA_CONNECT}) {
    CURLException::throwOnFailure(curl_share_setopt(share_.get(), CURLSHOPT_SHARE, data));
  }
}

HttpClientRunner::~HttpClientRunner() {
  stopping_ = true;
  while (curl_multi_wakeup(multi_.get()) != CURLM_OK) std::this_thread::sleep_for(kPauseAfterFailure);
  if (thread_.joinable()) thread_.join();
  pool_.reset();  // finishes completions, which still use the share handle
}

void HttpClientRunner::submit(std::shared_ptr<HttpContext> ctx) {
  {
    const MutexLock lock(mutex_);
    if (pending_.size() >= maxPending_) throw std::length_error("list too long");
    pending_.push_back({ctx, nullptr});
  }
  const CURLMcode code = curl_multi_wakeup(multi_.get());
  if (code == CURLM_OK) return;
  quietly([&] { logLine(LogLevel::Error, "Failed to trigger wake: %s", curl_multi_strerror(code)); });
  if (curl_multi_wakeup(multi_.get()) == CURLM_OK) return;
  // It would lie there for as long as the thread sleeps. What the thread has taken all the
  // same is its own: a throw would tell the caller that it has not.
  const MutexLock lock(mutex_);
  const auto sameContext = [&](const Pending& pending) { return pending.ctx == ctx; };
  if (std::erase_if(pending_, sameContext) != 0) throw CURLException(code);
}

void HttpClientRunner::run() noexcept {
  setCurrentThreadName("ZMS HttpClientC");
  std::optional<LogTag> tag;
  quietly([&] { tag.emplace("HttpClient"); });
  for (bool isWhole = true; !stopping_;) {
    // A turn sleeps in its poll until a transfer has work, submit() wakes it, or a minute has
    // passed; not when the one before left something undone, for which nobody calls again.
    isWhole = turn(isWhole ? kPollMilliseconds : 0);
    if (!isWhole) std::this_thread::sleep_for(kPauseAfterFailure);
  }
  abandonTransfers();
}

bool HttpClientRunner::turn(int pollMilliseconds) noexcept {
  try {
    performTransfers();
    finishTransfers();
    waitForWork(pollMilliseconds);
    addPending();
    return true;
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "HttpClientRunner: Exception in the transfer loop: %s, type: %s",
              printable(error.what()), typeName(error));
    });
  } catch (...) {
    quietly([] { logLine(LogLevel::Error, "HttpClientRunner: Unknown exception in the transfer loop"); });
  }
  return false;
}

void HttpClientRunner::performTransfers() {
  int running = 0;
  const CURLMcode code = curl_multi_perform(multi_.get(), &running);
  if (code == CURLM_OK) return;
  quietly([&] { logLine(LogLevel::Error, "curl_multi_perform failed: %s", curl_multi_strerror(code)); });
}

void HttpClientRunner::finishTransfers() {
  int queued = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &queued)) {
    if (message->msg == CURLMSG_DONE) finish(message->easy_handle, message->data.result);
  }
}

void HttpClientRunner::waitForWork(int milliseconds) {
  const CURLMcode code = curl_multi_poll(multi_.get(), nullptr, 0, milliseconds, nullptr);
  if (code == CURLM_OK) return;
  quietly([&] { logLine(LogLevel::Error, "curl_multi_poll failed: %s", curl_multi_strerror(code)); });
  std::this_thread::sleep_for(kPauseAfterFailure);
}

void HttpClientRunner::addPending() {
  std::list<Pending> taken;
  {
    const MutexLock lock(mutex_);
    taken.swap(pending_);
  }
  // Nothing may be thrown from here on: it would drop contexts whose requesters wait.
  for (auto pending = taken.begin(); pending != taken.end();) {
    try {
      add(pending->ctx);
      pending = taken.erase(pending);
    } catch (...) {
      (pending++)->failure = std::current_exception();
    }
  }
  for (const Pending& failed : taken) reject(failed.ctx, failed.failure);
}

void HttpClientRunner::reject(const Holder& ctx, const std::exception_ptr& reason) noexcept {
  try {
    pool_->post([ctx, reason] { rejectTransfer(ctx, reason); });
  } catch (...) {
    rejectTransfer(ctx, reason);
  }
  quietly([&] { logLine(LogLevel::Error, "Failed to add handle: %s", messageOf(reason)); });
}

// The easy handle holds the context by its private pointer, and so does `active_`, which the
// stop of the runner walks: libcurl lists no handles. finish() gives both up.
void HttpClientRunner::add(const Holder& ctx) {
  CURL* const handle = ctx->handle.get();
  auto holder = std::make_unique<Holder>(ctx);
  CURLException::throwOnFailure(curl_easy_setopt(handle, CURLOPT_PRIVATE, holder.get()));
  CURLException::throwOnFailure(curl_easy_setopt(handle, CURLOPT_SHARE, share_.get()));
  active_.emplace(handle, ctx);
  const CURLMcode code = curl_multi_add_handle(multi_.get(), handle);
  if (code != CURLM_OK) {
    active_.erase(handle);
    throw CURLException(code);
  }
  static_cast<void>(holder.release());  // finish() takes it back
}

void HttpClientRunner::finish(CURL* handle, CURLcode result) noexcept {
  Holder ctx;
  try {
    curl_multi_remove_handle(multi_.get(), handle);
    if (auto node = active_.extract(handle)) ctx = std::move(node.mapped());
    char* stored = nullptr;
    CURLException::throwOnFailure(curl_easy_getinfo(handle, CURLINFO_PRIVATE, &stored));
    const std::unique_ptr<Holder> holder(static_cast<Holder*>(static_cast<void*>(stored)));
    if (!holder) throw std::runtime_error("Failed to retrieve HttpContext from curl handle!");
    complete(*holder, result);
  } catch (...) {
    const std::exception_ptr failure = std::current_exception();
    // The pool would not take it. The line comes last: it may find no memory.
    if (ctx) rejectTransfer(ctx, failure);
    quietly([&] { logLine(LogLevel::Error, "Failed to finalize CURL session: %s", messageOf(failure)); });
  }
}

void HttpClientRunner::complete(const Holder& ctx, CURLcode result) {
  pool_->post([ctx, result] { completeTransfer(ctx, result); });
}

// Whoever waits for a promise must not wait for a thread that has ended.
void HttpClientRunner::abandonTransfers() {
  while (!active_.empty()) finish(active_.begin()->first, CURLE_ABORTED_BY_CALLBACK);
  std::list<Pending> left;
  {
    const MutexLock lock(mutex_);
    left.swap(pending_);
  }
  for (const Pending& pending : left) {
    try {
      complete(pending.ctx, CURLE_ABORTED_BY_CALLBACK);
    } catch (...) {
      rejectTransfer(pending.ctx, std::current_exception());
    }
  }
}

}  // namespace zarn
