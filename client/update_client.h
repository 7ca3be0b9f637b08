// Calls the update service on this machine.
//
//   zarn::client::UpdateClient service;
//   const auto result = service.install(LR"(C:\Downloads\update.exe)");
//   if (!result.ok()) { /* result.error() says why no answer came */ }
//   else if (result.value().status == zarn::client::kInstalled) { ... }
//
// Paths are UTF-16 and absolute: the service has a current directory of its own.
// Only the system itself is accepted as the service, and only it may act in the
// caller's name; where Windows' authentication is missing, as under Wine, whoever
// serves the endpoint is accepted.
// No call throws for a service that is away, refuses or dies; each answers with
// a CallError. Objects may be used from several threads at once.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>

namespace zarn::client {

// ---- Statuses of checkBundle and install; any other value is a Win32 error code.

inline constexpr std::int32_t kInstalled = 0;  // for checkBundle: trusted
inline constexpr std::int32_t kInstalledRebootRequired = 30000;
inline constexpr std::int32_t kRebootInitiated = 30001;
inline constexpr std::int32_t kFailed = 30002;
inline constexpr std::int32_t kExitCodeUnknown = 30003;
inline constexpr std::int32_t kSignatureRefused = 30004;
inline constexpr std::int32_t kSignerRefused = 30005;

/// Why a call has no answer.
enum class CallFailure : std::uint8_t {
  /// Nobody serves the endpoint; nothing was done.
  NotRunning,
  /// The service did not let this caller in (rpcStatus 5), or what serves its endpoint
  /// is not the system (1825, RPC_S_SEC_PKG_ERROR; or 5, too); nothing was done.
  Refused,
  /// The service went away during the call: whether it did its work is unknown.
  Interrupted,
  /// The path holds a zero character; nothing was sent.
  InvalidPath,
  /// Another RPC failure; CallError::rpcStatus says which.
  Other,
};

struct CallError {
  CallFailure failure = CallFailure::Other;
  /// The RPC runtime's status code; 0 for InvalidPath.
  std::uint32_t rpcStatus = 0;
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

struct InstallAnswer {
  std::int32_t status = kFailed;
  /// The installer's exit code, or the Win32 error for which it could not be
  /// started. Has a meaning only when the bundle got past all checks.
  std::int32_t installerExitCode = 0;
};

class UpdateClient {
 public:
  /// The endpoint of the installed service; tests may name another.
  explicit UpdateClient(std::wstring endpoint = L"UpdateServiceEndpoint");

  /// Whether the service would accept the bundle's signature: kInstalled,
  /// kSignatureRefused or kSignerRefused. Takes as long as the service needs to
  /// ask for the approved signers.
  [[nodiscard]] Result<std::int32_t> checkBundle(const std::wstring& bundlePath) const;

  /// Answers after the installer has ended, at most about ten minutes after it
  /// began; installs of other callers come first. After kInstalled and
  /// kInstalledRebootRequired the service ends itself.
  [[nodiscard]] Result<InstallAnswer> install(const std::wstring& bundlePath) const;

  /// Tells the service the media server's local application-data directory. The
  /// service does not say whether it could use it.
  [[nodiscard]] Result<std::monostate> setAppDataPath(const std::wstring& path) const;

  /// Whether the service listens, and is the system: asks it for nothing.
  [[nodiscard]] Result<std::monostate> probe() const;

 private:
  std::wstring endpoint_;
};

}  // namespace zarn::client
