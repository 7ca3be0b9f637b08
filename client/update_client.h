// Calls the update service on this machine: the functions of zarn_update_client.h, which says all
// that is not said here, for C++17 and later with the standard library alone.
//
//   zarn::client::UpdateClient service;
//   const auto result = service.install(LR"(C:\Downloads\update.exe)");
//   if (!result.ok()) { /* result.error() says why no answer came */ }
//   else if (result.value().status == zarn::client::kInstalled) { ... }
//
// Paths are UTF-16 and absolute. No call throws for a service that is away, refuses or dies; each
// answers with a CallError. Objects may be used from several threads at once.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "zarn_update_client.h"

namespace zarn::client {

// ---- Statuses of checkBundle and install; any other value is a Win32 error code.

inline constexpr std::int32_t kInstalled = ZARN_UPDATE_STATUS_INSTALLED;  // for checkBundle: trusted
inline constexpr std::int32_t kInstalledRebootRequired = ZARN_UPDATE_STATUS_INSTALLED_REBOOT_REQUIRED;
inline constexpr std::int32_t kRebootInitiated = ZARN_UPDATE_STATUS_REBOOT_INITIATED;
inline constexpr std::int32_t kFailed = ZARN_UPDATE_STATUS_FAILED;
inline constexpr std::int32_t kExitCodeUnknown = ZARN_UPDATE_STATUS_EXIT_CODE_UNKNOWN;
inline constexpr std::int32_t kSignatureRefused = ZARN_UPDATE_STATUS_SIGNATURE_REFUSED;
inline constexpr std::int32_t kSignerRefused = ZARN_UPDATE_STATUS_SIGNER_REFUSED;

/// Why a call has no answer.
enum class CallFailure : std::uint8_t {
  /// Nobody serves the endpoint; nothing was done.
  NotRunning,
  /// The service did not let this caller in (rpcStatus 5), or what serves its endpoint
  /// is not the system (1825, RPC_S_SEC_PKG_ERROR; or 5, too); nothing was done.
  Refused,
  /// The service went away during the call: whether it did its work is unknown.
  Interrupted,
  /// The path is empty, relative or too long, or holds a zero character; nothing was sent.
  InvalidPath,
  /// The time limit is over, or the event was set: the wait ended, and not the work.
  TimedOut,
  Cancelled,
  /// An event that is none, too many calls without an answer, or too little memory; nothing was sent.
  NotSent,
  /// Another RPC failure; CallError::rpcStatus says which.
  Other,
};

struct CallError {
  CallFailure failure = CallFailure::Other;
  /// The RPC runtime's status code; 0 where no call was made, or none has ended.
  std::uint32_t rpcStatus = 0;
  /// The code of the C interface, ZARN_UPDATE_...
  std::int32_t result = ZARN_UPDATE_OTHER;
};

/// An answer of the service, or why there is none.
template <typename T>
class [[nodiscard]] Result {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor)
  Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  Result(CallError error) : state_(std::in_place_index<1>, error) {}

  [[nodiscard]] bool ok() const noexcept { return state_.index() == 0; }
  /// Throws std::bad_variant_access when ok() is false.
  [[nodiscard]] const T& value() const { return std::get<0>(state_); }
  /// Throws std::bad_variant_access when ok() is true.
  [[nodiscard]] const CallError& error() const { return std::get<1>(state_); }

 private:
  std::variant<T, CallError> state_;
};

/// Whether the service was seen to be back after its restart.
enum class Restart : std::uint32_t {
  NotAwaited = ZARN_UPDATE_RESTART_NOT_AWAITED,
  Back = ZARN_UPDATE_RESTART_BACK,
  NotBack = ZARN_UPDATE_RESTART_NOT_BACK,
};

struct InstallAnswer {
  std::int32_t status = kFailed;
  /// The installer's exit code, or the Win32 error for which it could not be
  /// started. Has a meaning only when the bundle got past all checks.
  std::int32_t installerExitCode = 0;
  Restart restart = Restart::NotAwaited;
};

struct CallOptions {
  /// 0: as long as it takes. At most 49 days.
  std::chrono::milliseconds timeLimit{0};
  /// HANDLE of an event that ends the waits.
  void* cancelEvent = nullptr;
  bool awaitRestart = false;
  /// 0: two minutes.
  std::chrono::milliseconds restartLimit{0};
};

enum class ServiceState : std::uint32_t {
  Unknown = ZARN_UPDATE_SERVICE_UNKNOWN,
  NotInstalled = ZARN_UPDATE_SERVICE_NOT_INSTALLED,
  Stopped = ZARN_UPDATE_SERVICE_STOPPED,
  Starting = ZARN_UPDATE_SERVICE_STARTING,
  Running = ZARN_UPDATE_SERVICE_RUNNING,
  Stopping = ZARN_UPDATE_SERVICE_STOPPING,
  Paused = ZARN_UPDATE_SERVICE_PAUSED,
};

/// What the service is installing.
struct UnderWay {
  /// Nothing: that cannot be told, for the reason `error` (Win32).
  std::optional<bool> installing;
  std::uint32_t error = 0;
  std::wstring since;  ///< "2026-11-21T10:15:00.007Z"; empty: not known
  std::wstring path;   ///< cut to fit, fit to be shown; empty: not known
};

class UpdateClient {
 public:
  /// Whether the service would accept the bundle's signature: kInstalled,
  /// kSignatureRefused or kSignerRefused. Takes as long as the service needs to
  /// ask for the approved signers.
  [[nodiscard]] Result<std::int32_t> checkBundle(const std::wstring& bundlePath,
                                                 const CallOptions& options = {}) const {
    const Result<zarn_update_answer> answer = call(zarn_update_check, bundlePath, options);
    if (!answer.ok()) return answer.error();
    return answer.value().status;
  }

  /// Answers after the installer has ended, at most about ten minutes after it
  /// began; installs of other callers come first. After kInstalled and
  /// kInstalledRebootRequired the service ends itself and is started again.
  [[nodiscard]] Result<InstallAnswer> install(const std::wstring& bundlePath,
                                              const CallOptions& options = {}) const {
    const Result<zarn_update_answer> answer = call(zarn_update_install, bundlePath, options);
    if (!answer.ok()) return answer.error();
    const zarn_update_answer& given = answer.value();
    return InstallAnswer{given.status, given.installer_exit_code, static_cast<Restart>(given.restart)};
  }

  /// Tells the service the media server's local application-data directory; an empty path
  /// sends it back to its own account's. The service does not say whether it could use it.
  [[nodiscard]] Result<std::monostate> setAppDataPath(const std::wstring& path,
                                                      const CallOptions& options = {}) const {
    const Result<zarn_update_answer> answer = call(zarn_update_set_app_data, path, options);
    if (!answer.ok()) return answer.error();
    return std::monostate{};
  }

  [[nodiscard]] ServiceState state() const {
    zarn_update_service service{};
    service.size = sizeof(service);
    zarn_update_get_service(&service);
    return static_cast<ServiceState>(service.state);
  }

  /// Whether and what the service is installing, for whomever.
  [[nodiscard]] UnderWay underWay() const {
    zarn_update_under_way now{};
    now.size = sizeof(now);
    now.installing = ZARN_UPDATE_UNKNOWN;
    zarn_update_get_under_way(&now);
    UnderWay result{std::nullopt, now.error, now.since, now.path};
    if (now.installing != ZARN_UPDATE_UNKNOWN) result.installing = now.installing == ZARN_UPDATE_YES;
    return result;
  }

  /// Whether the service listens, and is the system: asks it for nothing.
  [[nodiscard]] Result<std::monostate> probe(const CallOptions& options = {}) const {
    const auto probe = [](const wchar_t*, const zarn_update_options* given, zarn_update_answer* answer) {
      return zarn_update_probe(given, answer);
    };
    const Result<zarn_update_answer> answer = call(probe, std::wstring(), options);
    if (!answer.ok()) return answer.error();
    return std::monostate{};
  }

 private:
  template <typename Function>
  static Result<zarn_update_answer> call(Function function, const std::wstring& path,
                                         const CallOptions& options) {
    if (path.find(L'\0') != std::wstring::npos)
      return CallError{CallFailure::InvalidPath, 0, ZARN_UPDATE_INVALID_ARGUMENT};
    zarn_update_options given{};
    given.size = sizeof(given);
    given.flags = options.awaitRestart ? ZARN_UPDATE_WAIT_FOR_RESTART : 0U;
    given.time_limit_ms = inRange(options.timeLimit);
    given.restart_limit_ms = inRange(options.restartLimit);
    given.cancel_event = options.cancelEvent;
    zarn_update_answer answer{};
    answer.size = sizeof(answer);
    const std::int32_t result = function(path.c_str(), &given, &answer);
    if (result == ZARN_UPDATE_OK) return answer;
    return CallError{failureOf(result), answer.rpc_status, result};
  }

  static std::uint32_t inRange(std::chrono::milliseconds limit) noexcept {
    constexpr std::int64_t most = 0xfffffffe;
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(limit.count(), 0, most));
  }

  static CallFailure failureOf(std::int32_t result) noexcept {
    switch (result) {
      case ZARN_UPDATE_NOT_RUNNING:
        return CallFailure::NotRunning;
      case ZARN_UPDATE_REFUSED:
        return CallFailure::Refused;
      case ZARN_UPDATE_INTERRUPTED:
        return CallFailure::Interrupted;
      case ZARN_UPDATE_PATH_EMPTY:
      case ZARN_UPDATE_PATH_RELATIVE:
      case ZARN_UPDATE_PATH_TOO_LONG:
        return CallFailure::InvalidPath;
      case ZARN_UPDATE_TIMED_OUT:
        return CallFailure::TimedOut;
      case ZARN_UPDATE_CANCELLED:
        return CallFailure::Cancelled;
      case ZARN_UPDATE_INVALID_ARGUMENT:
      case ZARN_UPDATE_TOO_MANY_CALLS:
      case ZARN_UPDATE_OUT_OF_MEMORY:
        return CallFailure::NotSent;
      default:
        return CallFailure::Other;
    }
  }
};

/// What a status of the service means; of a Win32 error the system's words.
[[nodiscard]] inline std::wstring describeStatus(std::int32_t status) {
  wchar_t text[ZARN_UPDATE_TEXT_UNITS] = {};
  zarn_update_describe_status(status, text, ZARN_UPDATE_TEXT_UNITS);
  return text;
}

/// Why there is no answer, a clause without a full stop.
[[nodiscard]] inline std::wstring describe(const CallError& error) {
  wchar_t text[ZARN_UPDATE_TEXT_UNITS] = {};
  zarn_update_describe_result(error.result, text, ZARN_UPDATE_TEXT_UNITS);
  return text;
}

}  // namespace zarn::client
