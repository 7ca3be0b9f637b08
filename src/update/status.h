// What the procedures of the service answer, how an installer's exit code becomes such
// an answer, and what each answer means in words. What callers are told of a status, in
// the client's headers, in zarn-update and in the documentation, comes from this table or
// is compared with it by a test.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace zarn {

/// Any other number in its place is a Win32 error code.
enum class Status : std::int32_t {
  Installed = 0,  ///< to a check: signature and signer are trusted
  RebootRequired = 30000,
  RebootInitiated = 30001,
  Failed = 30002,
  ExitCodeUnknown = 30003,
  SignatureRefused = 30004,
  SignerRefused = 30005,
};

[[nodiscard]] constexpr std::int32_t numberOf(Status status) noexcept {
  return static_cast<std::int32_t>(status);
}

/// The exit code with which the process asks to be started anew after an update
/// took effect (ERROR_RESTART_APPLICATION).
inline constexpr std::uint32_t kRestartCode = 1467;

/// What is known of a status. Texts are English and last as long as the program.
struct StatusFacts {
  Status status;
  /// In the client's headers kName and ZARN_UPDATE_STATUS_NAME.
  std::string_view name;
  /// The bundle is installed, also when a reboot is still to come.
  bool isSuccess;
  /// The installer's exit code that becomes this status; of a status that stands for no
  /// single code, nothing.
  std::optional<std::uint32_t> installerExit;
  /// The update took effect, so the service ends in order to be started anew.
  bool restartsService;
  /// A few words for a table of requests.
  std::string_view outcome;
  /// What happened, a clause without a full stop.
  std::string_view meaning;
  /// What to do next, a sentence without a full stop.
  std::string_view advice;
};

/// Every status, by its number.
[[nodiscard]] std::span<const StatusFacts> statuses() noexcept;

/// Null for a number that is no status of the service.
[[nodiscard]] const StatusFacts* factsOf(Status status) noexcept;

/// What Installed means as the answer to a check, in which nothing is installed.
inline constexpr std::string_view kTrustedMeaning = "signature and signer are trusted";

/// False also for numbers that are no status.
[[nodiscard]] bool isSuccess(Status status) noexcept;

/// The status that an installer's exit code becomes: Failed for every code that the
/// table does not list.
[[nodiscard]] const StatusFacts& judgeExitCode(std::uint32_t exitCode) noexcept;

/// What stands for an installer's exit code that could not be read.
inline constexpr std::uint32_t kExitCodeUnknown = 30003;

/// No bundle is larger; a larger one is answered with Failed.
inline constexpr std::int64_t kMaximumBundleGibibytes = 1;
inline constexpr std::int64_t kMaximumBundleBytes = kMaximumBundleGibibytes << 30;
/// The same for every text that names it, "1 GiB".
inline constexpr char kMaximumBundleWords[] = {'0' + kMaximumBundleGibibytes, ' ', 'G', 'i', 'B', '\0'};
static_assert(kMaximumBundleGibibytes > 0 && kMaximumBundleGibibytes < 10, "the words have one digit");

}  // namespace zarn
