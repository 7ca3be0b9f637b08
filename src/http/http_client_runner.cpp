#include "http/http_client_runner.h"

#include <chrono>
#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

#include "http/curl_exception.h"
#include "http/elastic_thread_pool.h"
#include "http/http_completion.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/system_error.h"
#include "util/type_name.h"

namespace zarn {
namespace {

constexpr int kPollMilliseconds = 60'000;

/// A failed poll returns at once; without a pause its log lines would fill the disk.
constexpr std::chrono::milliseconds kPauseAfterFailedPoll{100};

// Completion is short work, so that one thread mostly does, and it stays to spare
// the next request a thread's start. More are for continuations that block, and
// eight of those at once is more than the service ever has.
constexpr std::size_t kPoolLowerBound = 1;
constexpr std::size_t kPoolMaxThreads = 8;

// The runner's thread and the pool's, where easy handles are cleaned up, use the
// share handle at the same time.
void lockShare(CURL* /*handle*/, curl_lock_data data, curl_lock_access /*access*/, void* locks) noexcept {
  (*static_cast<std::array<std::mutex, CURL_LOCK_DATA_LAST>*>(locks))[data].lock();
}
void unlockShare(CURL* /*handle*/, curl_lock_data data, void* locks) noexcept {
  (*static_cast<std::array<std::mutex, CURL_LOCK_DATA_LAST>*>(locks))[data].unlock();
}

template <typename Handle>
Handle required(Handle handle) {
  if (!handle) throw std::bad_alloc();
  return handle;
}

/// For places that must go on without memory for a line.
void logQuietly(PrintfFormat<std::string> format, const char* reason) noexcept {
  try {
    logLine<std::string>(LogLevel::Error, format, printable(reason));
  } catch (const std::exception&) {
    // Nowhere left to report it.
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
  curl_multi_wakeup(multi_.get());
  if (thread_.joinable()) thread_.join();
  pool_.reset();  // finishes completions, which still use the share handle
}

void HttpClientRunner::submit(std::shared_ptr<HttpContext> ctx) {
  {
    const MutexLock lock(mutex_);
    if (pending_.size() >= maxPending_) throw std::length_error("list too long");
    pending_.push_back(std::move(ctx));
  }
  const CURLMcode code = curl_multi_wakeup(multi_.get());
  // The runner has the request by now: a throw would tell the caller that it has not.
  if (code != CURLM_OK) logQuietly("Failed to trigger wake: %s", curl_multi_strerror(code));
}

void HttpClientRunner::run() {
  setCurrentThreadName("ZMS HttpClientC");
  const LogTag tag("HttpClient");
  while (!stopping_) {
    try {
      performTransfers();
      finishTransfers();
      waitForWork();
      addPending();
    } catch (const std::exception& error) {
      logLine(LogLevel::Error, "HttpClientRunner: Exception in the transfer loop: %s, type: %s",
              printable(error.what()), typeName(error));
    }
  }
  abandonTransfers();
}

void HttpClientRunner::performTransfers() {
  int running = 0;
  const CURLMcode code = curl_multi_perform(multi_.get(), &running);
  if (code != CURLM_OK) logLine(LogLevel::Error, "curl_multi_perform failed: %s", curl_multi_strerror(code));
}

void HttpClientRunner::finishTransfers() {
  int queued = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &queued)) {
    if (message->msg == CURLMSG_DONE) finish(message->easy_handle, message->data.result);
  }
}

void HttpClientRunner::waitForWork() {
  const CURLMcode code = curl_multi_poll(multi_.get(), nullptr, 0, kPollMilliseconds, nullptr);
  if (code == CURLM_OK) return;
  logLine(LogLevel::Error, "curl_multi_poll failed: %s", curl_multi_strerror(code));
  std::this_thread::sleep_for(kPauseAfterFailedPoll);
}

void HttpClientRunner::addPending() {
  struct Taken {
    Holder ctx;
    std::exception_ptr failure;
  };
  std::list<Taken> failed;
  {
    const MutexLock lock(mutex_);
    while (!pending_.empty()) {
      // The memory for a failure comes first: a context that is dropped unsettled would
      // let its requester wait for ever.
      std::list<Taken> next(1);
      Taken& taken = next.front();
      taken.ctx = std::move(pending_.front());
      pending_.pop_front();
      try {
        add(taken.ctx);
      } catch (const std::exception& error) {
        taken.failure = std::current_exception();
        failed.splice(failed.end(), next);
        logQuietly("Failed to add handle: %s", error.what());
      }
    }
  }
  for (const Taken& taken : failed) reject(taken.ctx, taken.failure);
}

void HttpClientRunner::reject(const Holder& ctx, const std::exception_ptr& reason) {
  try {
    pool_->post([ctx, reason] { rejectTransfer(ctx, reason); });
  } catch (const std::exception&) {
    rejectTransfer(ctx, reason);  // better settled on this thread than never
  }
}

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

void HttpClientRunner::finish(CURL* handle, CURLcode result) {
  Holder ctx;
  try {
    curl_multi_remove_handle(multi_.get(), handle);
    if (auto node = active_.extract(handle)) ctx = std::move(node.mapped());
    char* stored = nullptr;
    CURLException::throwOnFailure(curl_easy_getinfo(handle, CURLINFO_PRIVATE, &stored));
    const std::unique_ptr<Holder> holder(static_cast<Holder*>(static_cast<void*>(stored)));
    if (!holder) throw std::runtime_error("Failed to retrieve HttpContext from curl handle!");
    complete(*holder, result);
  } catch (const std::exception& error) {
    logLine(LogLevel::Error, "Failed to finalize CURL session: %s", printable(error.what()));
    // The pool would not take it: better settled on this thread than never.
    if (ctx) rejectTransfer(ctx, std::current_exception());
  }
}

void HttpClientRunner::complete(Holder ctx, CURLcode result) {
  pool_->post([ctx = std::move(ctx), result] { completeTransfer(ctx, result); });
}

void HttpClientRunner::abandonTransfers() {
  while (!active_.empty()) finish(active_.begin()->first, CURLE_ABORTED_BY_CALLBACK);
  const MutexLock lock(mutex_);
  for (Holder& ctx : std::exchange(pending_, {})) complete(std::move(ctx), CURLE_ABORTED_BY_CALLBACK);
}

}  // namespace zarn
