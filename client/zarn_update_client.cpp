// The functions of the C interface: what callers hand over is judged and copied here, and what
// happens below becomes a code.
#include "client/zarn_update_client.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "client/bounded_work.h"
#include "client/caller_memory.h"
#include "client/install_under_way.h"
#include "client/service_call.h"
#include "client/service_process.h"
#include "os/error_text.h"
#include "os/text.h"
#include "update/record_place.h"
#include "update/status.h"

namespace zarn::client {
namespace {

using std::chrono::milliseconds;

/// What the service takes.
constexpr std::size_t kMostPathUnits = 32'767;
constexpr milliseconds kRestartPoll(100);
constexpr std::uint32_t kRestartLimitMs = 120'000;
constexpr DWORD kListeningLimitMs = 2'000;
constexpr DWORD kRecordLimitMs = 5'000;

// What the first version of the interface had: no record of any version is smaller.
constexpr std::uint32_t kFirstOptions = 24;
constexpr std::uint32_t kFirstAnswer = 20;
constexpr std::uint32_t kFirstService = 16;
constexpr std::uint32_t kFirstUnderWay = 4176;
static_assert(sizeof(zarn_update_options) == kFirstOptions && sizeof(zarn_update_answer) == kFirstAnswer &&
                  sizeof(zarn_update_service) == kFirstService &&
                  sizeof(zarn_update_under_way) == kFirstUnderWay,
              "later members come behind these, and none of these changes");

// ---- What a caller hands over ------------------------------------------------------------

/// A copy of the caller's record, and where it goes back to.
template <typename Record, std::uint32_t firstSize>
class Answer {
 public:
  explicit Answer(Record* to) noexcept : to_(to), bytes_(recordRoom(to, sizeof(Record), firstSize)) {}

  /// Also says whether the caller's memory can be written to.
  [[nodiscard]] bool give(Record record) const noexcept {
    if (bytes_ == 0) return false;
    // The caller's own stays: by it the next call knows how much room there is.
    constexpr std::size_t size = sizeof(std::uint32_t);
    return writeMemory(reinterpret_cast<std::byte*>(to_) + size,
                       reinterpret_cast<const std::byte*>(&record) + size, bytes_ - size);
  }

 private:
  Record* to_;
  std::uint32_t bytes_;
};

bool isAbsolute(std::wstring_view path) {
  const auto isSeparator = [](wchar_t unit) { return unit == L'\\' || unit == L'/'; };
  if (path.size() > 1 && isSeparator(path[0]) && isSeparator(path[1])) return true;
  return path.size() > 2 && path[0] < 0x80 && os::isLetter(static_cast<char>(path[0])) && path[1] == L':' &&
         isSeparator(path[2]);
}

std::int32_t readPath(const wchar_t* from, Request request, std::wstring& path) {
  if (request == Request::Probe) return ZARN_UPDATE_OK;
  switch (readText(from, kMostPathUnits, path)) {
    case TextRead::Unreadable:
      return ZARN_UPDATE_INVALID_ARGUMENT;
    case TextRead::TooLong:
      return ZARN_UPDATE_PATH_TOO_LONG;
    case TextRead::Whole:
      break;
  }
  if (path.empty()) return request == Request::SetAppData ? ZARN_UPDATE_OK : ZARN_UPDATE_PATH_EMPTY;
  return isAbsolute(path) ? ZARN_UPDATE_OK : ZARN_UPDATE_PATH_RELATIVE;
}

struct Options {
  bool awaitsRestart = false;
  DWORD limit = INFINITE;
  DWORD restartLimit = kRestartLimitMs;
  /// Our own handle: the caller's may be closed as soon as somebody else cancels.
  KernelHandle cancel;
};

bool readOptions(const zarn_update_options* from, Options& options) {
  if (from == nullptr) return true;
  zarn_update_options given{};
  if (!readRecord(from, &given, sizeof(given), kFirstOptions)) return false;
  if ((given.flags & ~ZARN_UPDATE_WAIT_FOR_RESTART) != 0) return false;
  options.awaitsRestart = (given.flags & ZARN_UPDATE_WAIT_FOR_RESTART) != 0;
  if (given.time_limit_ms != 0) options.limit = given.time_limit_ms;
  if (given.restart_limit_ms != 0) options.restartLimit = given.restart_limit_ms;
  if (given.cancel_event == nullptr) return true;
  // Numbers below 0 stand for this process and this thread, INVALID_HANDLE_VALUE among them.
  if (reinterpret_cast<std::intptr_t>(given.cancel_event) < 0) return false;
  return DuplicateHandle(GetCurrentProcess(), given.cancel_event, GetCurrentProcess(),
                         options.cancel.receive(), SYNCHRONIZE, FALSE, 0) != 0;
}

// ---- Calls -------------------------------------------------------------------------------

struct ServiceCall final : Work {
  ServiceCall(Request its, std::wstring sent) : request(its), path(std::move(sent)) {}
  void run() noexcept override { reply = callService(request, path); }

  const Request request;
  const std::wstring path;
  Reply reply;
};

std::int32_t resultOf(Ending ending) noexcept {
  switch (ending) {
    case Ending::Answered:
      return ZARN_UPDATE_OK;
    case Ending::NotRunning:
      return ZARN_UPDATE_NOT_RUNNING;
    case Ending::Refused:
      return ZARN_UPDATE_REFUSED;
    case Ending::Interrupted:
      return ZARN_UPDATE_INTERRUPTED;
    case Ending::Other:
      break;
  }
  return ZARN_UPDATE_OTHER;
}

std::int32_t resultOf(WaitEnd end) noexcept {
  switch (end) {
    case WaitEnd::Done:
      return ZARN_UPDATE_OK;
    case WaitEnd::TimedOut:
      return ZARN_UPDATE_TIMED_OUT;
    case WaitEnd::Cancelled:
      return ZARN_UPDATE_CANCELLED;
    case WaitEnd::TooMany:
      return ZARN_UPDATE_TOO_MANY_CALLS;
    case WaitEnd::NoThread:
      break;
  }
  return ZARN_UPDATE_OUT_OF_MEMORY;
}

zarn::Result<SERVICE_STATUS_PROCESS> queryService() {
  const auto service = openService(SERVICE_QUERY_STATUS);
  if (!service) return failure(service.error());
  return queryProcess(*service);
}

/// 0 when it has none, or nobody tells.
DWORD runningProcess() {
  const auto service = queryService();
  return service && service->dwCurrentState == SERVICE_RUNNING ? service->dwProcessId : 0;
}

bool isBack(DWORD before) {
  const DWORD now = runningProcess();
  if (now == 0 || now == before) return false;
  const auto probe = std::make_shared<ServiceCall>(Request::Probe, std::wstring());
  if (runBounded(probe, kListeningLimitMs, {}) != WaitEnd::Done) return false;
  // One that keeps it to itself whether it listens is there, too.
  return probe->reply.ending == Ending::Answered || probe->reply.ending == Ending::Refused;
}

/// `before` is the process that gave the answer. Whatever happens here changes nothing of that.
std::uint32_t awaitRestart(DWORD before, const Options& options) noexcept {
  const ULONGLONG begin = GetTickCount64();
  while (before != 0) {
    try {
      if (isBack(before)) return ZARN_UPDATE_RESTART_BACK;
    } catch (const std::bad_alloc&) {
      break;
    }
    const ULONGLONG passed = GetTickCount64() - begin;
    if (passed >= options.restartLimit) break;
    const auto pause =
        static_cast<DWORD>(std::min<ULONGLONG>(kRestartPoll.count(), options.restartLimit - passed));
    if (!options.cancel) {
      Sleep(pause);
    } else if (WaitForSingleObject(options.cancel.get(), pause) == WAIT_OBJECT_0) {
      break;
    }
  }
  return ZARN_UPDATE_RESTART_NOT_BACK;
}

bool restartsService(std::int32_t status) noexcept {
  const StatusFacts* const facts = factsOf(static_cast<Status>(status));
  return facts != nullptr && facts->restartsService;
}

/// Sends the request and waits as the options say. A call that anything may end needs a thread
/// that can be left behind.
std::int32_t send(const std::shared_ptr<ServiceCall>& call, const Options& options) {
  if (options.limit == INFINITE && !options.cancel) {
    call->run();
    return ZARN_UPDATE_OK;
  }
  if (options.cancel) {
    const DWORD state = WaitForSingleObject(options.cancel.get(), 0);
    if (state == WAIT_FAILED) return ZARN_UPDATE_INVALID_ARGUMENT;
    if (state != WAIT_TIMEOUT) return ZARN_UPDATE_CANCELLED;
  }
  return resultOf(runBounded(call, options.limit, options.cancel));
}

constexpr zarn_update_answer kNoAnswer{0, ZARN_UPDATE_STATUS_FAILED, 0, 0, ZARN_UPDATE_RESTART_NOT_AWAITED};

std::int32_t perform(Request request, const wchar_t* path, const zarn_update_options* given,
                     zarn_update_answer* to) {
  const Answer<zarn_update_answer, kFirstAnswer> answer(to);
  const bool isWanted = to != nullptr || request == Request::Check || request == Request::Install;
  // What is never filled in must not look like a success.
  if (isWanted && !answer.give(kNoAnswer)) return ZARN_UPDATE_INVALID_ARGUMENT;
  Options options;
  if (!readOptions(given, options)) return ZARN_UPDATE_INVALID_ARGUMENT;
  std::wstring sent;
  if (const std::int32_t refused = readPath(path, request, sent); refused != ZARN_UPDATE_OK) return refused;

  const bool awaitsRestart = options.awaitsRestart && request == Request::Install;
  const DWORD before = awaitsRestart ? runningProcess() : 0;
  const auto call = std::make_shared<ServiceCall>(request, std::move(sent));
  if (const std::int32_t ended = send(call, options); ended != ZARN_UPDATE_OK) return ended;
  const Reply& reply = call->reply;
  zarn_update_answer filled = kNoAnswer;
  filled.rpc_status = reply.rpcStatus;
  if (reply.ending == Ending::Answered) {
    filled.status = reply.status;
    filled.installer_exit_code = reply.exitCode;
    if (awaitsRestart && restartsService(reply.status)) filled.restart = awaitRestart(before, options);
  }
  // Where the first one went; should the memory be gone by now, the result still counts.
  static_cast<void>(isWanted && answer.give(filled));
  return resultOf(reply.ending);
}

// ---- The service as it is now ---------------------------------------------------------------

std::uint32_t stateOf(DWORD state) noexcept {
  switch (state) {
    case SERVICE_STOPPED:
      return ZARN_UPDATE_SERVICE_STOPPED;
    case SERVICE_START_PENDING:
      return ZARN_UPDATE_SERVICE_STARTING;
    case SERVICE_RUNNING:
      return ZARN_UPDATE_SERVICE_RUNNING;
    case SERVICE_STOP_PENDING:
      return ZARN_UPDATE_SERVICE_STOPPING;
    default:
      return ZARN_UPDATE_SERVICE_PAUSED;
  }
}

zarn_update_service serviceNow() {
  const auto service = queryService();
  if (service) return {0, stateOf(service->dwCurrentState), service->dwProcessId, 0};
  if (service.error() == kServiceNotInstalled) return {0, ZARN_UPDATE_SERVICE_NOT_INSTALLED, 0, 0};
  return {0, ZARN_UPDATE_SERVICE_UNKNOWN, 0, service.error().code()};
}

struct UnderWayCheck final : Work {
  void run() noexcept override {
    try {
      const auto service = queryService();
      found = installUnderWay(recordFolderPath(), service ? zarn::Result<std::uint32_t>(service->dwProcessId)
                                                          : failure(service.error()));
    } catch (const std::bad_alloc&) {
      found = failure(ERROR_NOT_ENOUGH_MEMORY);
    }
  }

  zarn::Result<std::optional<InstallUnderWay>> found{failure(ERROR_TIMEOUT)};
};

template <std::size_t size>
void put(wchar_t (&to)[size], const std::string& utf8) {
  const std::wstring text = os::wideFromUtf8(utf8).value_or(std::wstring());
  static_cast<void>(writeText(to, size, text));
}

zarn_update_under_way underWayNow() {
  zarn_update_under_way now{};
  now.installing = ZARN_UPDATE_UNKNOWN;
  const auto check = std::make_shared<UnderWayCheck>();
  const WaitEnd end = runBounded(check, kRecordLimitMs, {});
  if (end != WaitEnd::Done) {
    now.error = end == WaitEnd::TimedOut ? ERROR_TIMEOUT : ERROR_NOT_ENOUGH_MEMORY;
  } else if (!check->found) {
    now.error = check->found.error().code();
  } else if (const auto& shown = *check->found) {
    now.installing = ZARN_UPDATE_YES;
    now.process_id = shown->processId;
    put(now.since, shown->since);
    put(now.path, shown->path);
  } else {
    now.installing = ZARN_UPDATE_NO;
  }
  return now;
}

// ---- Words ------------------------------------------------------------------------------------

constexpr std::array<std::string_view, ZARN_UPDATE_OTHER + 1> kResults = {
    "the service has answered",
    "an argument is wrong",
    "the path is empty",
    "the path is relative",
    "the path has more than 32767 characters",
    "the update service is not running",
    "the update service refused this caller, or another program stands in its place",
    "the update service went away during the call, so what it did is unknown",
    "the time limit is over; what the service has begun goes on",
    "the wait was cancelled; what the service has begun goes on",
    "too many calls of this process have no answer yet",
    "memory is short",
    "the call to the update service failed",
};

std::string wordsOf(std::int32_t status) {
  if (const StatusFacts* const facts = factsOf(static_cast<Status>(status)))
    return std::string(facts->meaning);
  const auto code = static_cast<std::uint32_t>(status);
  return describeSystemError(code);
}

std::int32_t say(std::string_view words, wchar_t* text, std::uint32_t units) {
  const auto wide = os::wideFromUtf8(words);
  return wide && writeText(text, units, *wide) ? ZARN_UPDATE_OK : ZARN_UPDATE_INVALID_ARGUMENT;
}

/// Runs a function's work; nothing may be thrown into the caller's language.
template <typename Body>
std::int32_t guarded(const Body& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ZARN_UPDATE_OUT_OF_MEMORY;
  } catch (...) {
    return ZARN_UPDATE_OTHER;
  }
}

}  // namespace
}  // namespace zarn::client

using namespace zarn::client;  // NOLINT(google-build-using-namespace): for what follows alone

int32_t ZARN_UPDATE_CALL zarn_update_check(const wchar_t* bundle, const zarn_update_options* options,
                                           zarn_update_answer* answer) {
  return guarded([&] { return perform(Request::Check, bundle, options, answer); });
}

int32_t ZARN_UPDATE_CALL zarn_update_install(const wchar_t* bundle, const zarn_update_options* options,
                                             zarn_update_answer* answer) {
  return guarded([&] { return perform(Request::Install, bundle, options, answer); });
}

int32_t ZARN_UPDATE_CALL zarn_update_set_app_data(const wchar_t* directory,
                                                  const zarn_update_options* options,
                                                  zarn_update_answer* answer) {
  return guarded([&] { return perform(Request::SetAppData, directory, options, answer); });
}

int32_t ZARN_UPDATE_CALL zarn_update_probe(const zarn_update_options* options, zarn_update_answer* answer) {
  return guarded([&] { return perform(Request::Probe, nullptr, options, answer); });
}

int32_t ZARN_UPDATE_CALL zarn_update_get_service(zarn_update_service* service) {
  return guarded([&] {
    const Answer<zarn_update_service, kFirstService> answer(service);
    return answer.give(serviceNow()) ? ZARN_UPDATE_OK : ZARN_UPDATE_INVALID_ARGUMENT;
  });
}

int32_t ZARN_UPDATE_CALL zarn_update_get_under_way(zarn_update_under_way* under_way) {
  return guarded([&] {
    const Answer<zarn_update_under_way, kFirstUnderWay> answer(under_way);
    return answer.give(underWayNow()) ? ZARN_UPDATE_OK : ZARN_UPDATE_INVALID_ARGUMENT;
  });
}

int32_t ZARN_UPDATE_CALL zarn_update_describe_status(int32_t status, wchar_t* text, uint32_t units) {
  return guarded([&] { return say(wordsOf(status), text, units); });
}

int32_t ZARN_UPDATE_CALL zarn_update_describe_result(int32_t result, wchar_t* text, uint32_t units) {
  return guarded([&] {
    const bool isKnown = result >= 0 && static_cast<std::size_t>(result) < kResults.size();
    return say(isKnown ? kResults.at(static_cast<std::size_t>(result)) : "an unknown result", text, units);
  });
}

uint32_t ZARN_UPDATE_CALL zarn_update_get_version(void) {
  return ZARN_UPDATE_VERSION;
}
