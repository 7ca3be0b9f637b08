// The one thread that performs all HTTP transfers of the process, through a
// libcurl multi handle.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <list>
#include <memory>
#include <thread>
#include <unordered_map>

#include "http/http_context.h"
#include "http/libcurl.h"
#include "util/mutex.h"

namespace zarn {

class ElasticThreadPool;

/// Only the runner's thread touches the multi handle (but for its wake-up); what
/// follows a transfer runs on a pool of its own, so that nothing a requester does
/// can hold up other transfers.
class HttpClientRunner {
 public:
  /// Far more requests than ever wait at once: the thread takes them up at once.
  static constexpr std::size_t kMaxPending = 100'000;

  /// The runner of the process. Made on first use, never destroyed; its thread ends with the process.
  static HttpClientRunner& instance();

  /// Starts the thread. Throws std::bad_alloc without handles, CURLException when
  /// they cannot be shared or the thread could not be woken.
  explicit HttpClientRunner(std::size_t maxPending = kMaxPending);
  HttpClientRunner(const HttpClientRunner&) = delete;
  HttpClientRunner& operator=(const HttpClientRunner&) = delete;
  /// Ends transfers under way with "aborted by callback" (42), settles their
  /// promises and joins all threads. For tests.
  ~HttpClientRunner();

  /// Queues a prepared context and wakes the thread. Throws std::length_error
  /// ("list too long") when the queue is full, CURLException when the thread cannot be
  /// woken; the context is not queued then.
  void submit(std::shared_ptr<HttpContext> ctx);

 private:
  struct Idle {};
  HttpClientRunner(std::size_t maxPending, Idle);

  using Holder = std::shared_ptr<HttpContext>;
  using ShareLocks = std::array<os::Lock, CURL_LOCK_DATA_LAST>;

  /// The failure has its place from the beginning: memory for it might not be had later.
  struct Pending {
    Holder ctx;
    std::exception_ptr failure;
  };

  void run() noexcept;
  /// One turn of the loop, which sleeps no longer than so; false when it broke off.
  bool turn(int pollMilliseconds) noexcept;
  void performTransfers();
  void finishTransfers();
  void waitForWork(int milliseconds);
  void addPending();
  void abandonTransfers();

  void add(const Holder& ctx);
  // However these end, the context is settled; better on this thread than never.
  void reject(const Holder& ctx, const std::exception_ptr& reason) noexcept;
  void finish(CURL* handle, CURLcode result) noexcept;
  /// Hands the completion of a transfer to the pool.
  void complete(const Holder& ctx, CURLcode result);

  ShareLocks shareLocks_;
  ShareHandle share_;
  MultiHandle multi_;
  std::unique_ptr<ElasticThreadPool> pool_;
  const std::size_t maxPending_;
  Mutex mutex_;
  std::list<Pending> pending_ ZARN_GUARDED_BY(mutex_);
  std::unordered_map<CURL*, Holder> active_;  ///< in the multi handle; the thread's own
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

}  // namespace zarn
