// http_bench candidate=zarn|easy|relayed url=URL ca=PEM callers=N requests=N bytes=N
//
// Each caller makes so many GET requests, one after another. Every body must be as
// long as it should and hold the letters that bench/bench.py had the server serve.
// The server names its connections in the header X-Connection; they are counted.
#include <array>
#include <barrier>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "http/http_client.h"
#include "http/libcurl.h"
#include "measure.h"
#include "os/system_error.h"

namespace zarn::bench {
namespace {

struct Task {
  std::string url;
  std::string ca;
  std::size_t callers;
  std::size_t requests;
  std::string body;
};

constexpr std::string_view kConnectionHeader = "X-Connection";

/// A caller's own connection numbers; shared only by what is added at the end.
using Connections = std::set<std::string, std::less<>>;

void verify(const Task& task, long status, const std::string& body) {
  require(status == 200 && body == task.body, "a response is wrong");
}

class ZarnCaller {
 public:
  explicit ZarnCaller(const Task& task) : task_(task) {}

  void get(Connections& connections) {
    const auto request = HttpContext::create(task_.url, "GET");
    request->cacert = task_.ca;
    const auto response = HttpClient::submit(request)->wait();
    verify(task_, response->httpCode, response->body);
    const auto header = response->responseHeaders.find(std::string(kConnectionHeader));
    require(header != response->responseHeaders.end(), "no connection number");
    if (!connections.contains(header->second)) connections.insert(header->second);
  }

 private:
  const Task& task_;
};

/// libcurl's easy handle, used again for each request.
class EasyCaller {
 public:
  explicit EasyCaller(const Task& task) : task_(task), handle_(curl_easy_init()) {
    CURL* const handle = handle_.get();
    curl_easy_setopt(handle, CURLOPT_URL, task.url.c_str());
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_CAINFO, task.ca.c_str());
    curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, "gzip");
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body_);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, append);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &headers_);
  }

  void get(Connections& connections) {
    body_.clear();
    headers_.clear();
    CURLException::throwOnFailure(curl_easy_perform(handle_.get()));
    long status = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
    verify(task_, status, body_);
    const std::size_t header = headers_.find(kConnectionHeader);
    require(header != std::string::npos, "no connection number");
    const std::size_t value = header + kConnectionHeader.size() + 2;
    const std::string_view number(headers_.data() + value, headers_.find('\r', value) - value);
    if (!connections.contains(number)) connections.emplace(number);
  }

 private:
  static std::size_t append(char* data, std::size_t size, std::size_t count, void* text) {
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
  }

  const Task& task_;
  EasyHandle handle_;
  std::string body_;
  std::string headers_;
};

/// A sleeper and who wakes it: the plainest hand-off between two threads.
class HandOff {
 public:
  void wake() {
    {
      const std::lock_guard lock(mutex_);
      called_ = true;
    }
    condition_.notify_one();
  }
  void sleep() {
    std::unique_lock lock(mutex_);
    condition_.wait(lock, [this] { return called_; });
    called_ = false;
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool called_ = false;
};

/// The same easy handle behind three hand-offs, as many as a request of the service has:
/// the caller wakes the thread that transfers, that one the thread that answers, and that
/// one the caller. Its time holds what waking threads costs on this machine, and no more.
class RelayedCaller {
 public:
  explicit RelayedCaller(const Task& task) : caller_(task) {}
  RelayedCaller(const RelayedCaller&) = delete;
  RelayedCaller& operator=(const RelayedCaller&) = delete;
  ~RelayedCaller() {
    connections_ = nullptr;  // the end
    toTransfer_.wake();
    transfer_.join();
    answer_.join();
  }

  void get(Connections& connections) {
    connections_ = &connections;
    toTransfer_.wake();
    toCaller_.sleep();
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  void transfer() {
    for (toTransfer_.sleep(); connections_ != nullptr; toTransfer_.sleep()) {
      try {
        caller_.get(*connections_);
      } catch (...) {
        failure_ = std::current_exception();
      }
      toAnswer_.wake();
    }
    toAnswer_.wake();
  }
  void answer() {
    for (toAnswer_.sleep(); connections_ != nullptr; toAnswer_.sleep()) toCaller_.wake();
  }

  EasyCaller caller_;
  Connections* connections_ = nullptr;
  std::exception_ptr failure_;
  HandOff toTransfer_, toAnswer_, toCaller_;
  std::thread transfer_{[this] { transfer(); }};
  std::thread answer_{[this] { answer(); }};
};

struct Result {
  std::vector<double> waits;
  Connections connections;
  double duration = 0;
};

template <typename Caller>
Result perform(const Task& task) {
  Result result;
  std::mutex mutex;
  std::exception_ptr failure;
  std::barrier together(static_cast<std::ptrdiff_t>(task.callers) + 1);
  const auto call = [&] {
    Caller caller(task);
    Connections connections;
    std::vector<double> waits;
    std::exception_ptr own;
    try {
      caller.get(connections);  // connects
    } catch (...) {
      own = std::current_exception();
    }
    together.arrive_and_wait();
    try {
      for (std::size_t i = 0; i < task.requests && !own; ++i) {
        const auto start = Clock::now();
        caller.get(connections);
        waits.push_back(seconds(Clock::now() - start) * 1e6);
      }
    } catch (...) {
      own = std::current_exception();
    }
    const std::lock_guard lock(mutex);
    if (own) failure = own;
    result.waits.insert(result.waits.end(), waits.begin(), waits.end());
    result.connections.merge(connections);
  };
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < task.callers; ++i) threads.emplace_back(call);
  together.arrive_and_wait();
  const auto start = Clock::now();
  for (std::thread& thread : threads) thread.join();
  result.duration = seconds(Clock::now() - start);
  if (failure) std::rethrow_exception(failure);
  return result;
}

void measure(const Options& options) {
  struct Candidate {
    std::string_view name;
    Result (*perform)(const Task&);
  };
  static constexpr std::array<Candidate, 3> kCandidates = {
      {{"zarn", perform<ZarnCaller>}, {"easy", perform<EasyCaller>}, {"relayed", perform<RelayedCaller>}}};

  const Task task{options.text("url"), options.text("ca"), options.number("callers"),
                  options.number("requests"), std::string(options.number("bytes"), 'b')};
  initializeCurl();
  Result result = byName(kCandidates, options.text("candidate")).perform(task);
  require(result.waits.size() == task.callers * task.requests, "requests are missing");
  report("requests_per_s", static_cast<double>(result.waits.size()) / result.duration);
  report("p50_us", percentile(result.waits, 0.5));
  report("p99_us", percentile(result.waits, 0.99));
  report("connects", static_cast<double>(result.connections.size()));
}

}  // namespace
}  // namespace zarn::bench

int main(int count, char** arguments) {
  return zarn::bench::runBenchmark(count, arguments, zarn::bench::measure);
}
