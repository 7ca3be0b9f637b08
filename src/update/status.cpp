#include "update/status.h"

#include <algorithm>
#include <array>

#include "os/text.h"

namespace zarn {
namespace {

constexpr auto kFailedMeaning = os::joinedLiterals(
    "not installed: the bundle could not be read, is larger than ", kMaximumBundleWords,
    ", does not end in \".exe\", could not be copied or started, or the installer failed with another exit "
    "code");

constexpr std::array<StatusFacts, 7> kStatuses = {{
    {.status = Status::Installed,
     .name = "Installed",
     .isSuccess = true,
     .installerExit = 0,
     .restartsService = true,
     .outcome = "installed",
     .meaning = "installed",
     .advice = "Nothing; the service ends itself with 1467 and is started again"},
    {.status = Status::RebootRequired,
     .name = "InstalledRebootRequired",
     .isSuccess = true,
     .installerExit = 3010,  // ERROR_SUCCESS_REBOOT_REQUIRED
     .restartsService = true,
     .outcome = "installed, reboot required",
     .meaning = "installed, and a reboot is required to complete it (installer exit code 3010)",
     .advice = "Reboot when it suits"},
    {.status = Status::RebootInitiated,
     .name = "RebootInitiated",
     .isSuccess = true,
     .installerExit = 1641,  // ERROR_SUCCESS_REBOOT_INITIATED
     .restartsService = false,
     .outcome = "installed, reboot began",
     .meaning = "installed, and the installer began a reboot (installer exit code 1641)",
     .advice = "Nothing; the machine reboots"},
    {.status = Status::Failed,
     .name = "Failed",
     .isSuccess = false,
     .installerExit = std::nullopt,
     .restartsService = false,
     .outcome = "failed",
     .meaning = kFailedMeaning,
     .advice = "Run zarn-update verify on the bundle, and zarn-update explain on the installer's exit code "
               "if there is one"},
    {.status = Status::ExitCodeUnknown,
     .name = "ExitCodeUnknown",
     .isSuccess = false,
     .installerExit = kExitCodeUnknown,
     .restartsService = false,
     .outcome = "failed",
     .meaning = "the installer's exit code could not be read, or it was 30003",
     .advice = "See whether the new version is there, and look into Installer Logs"},
    {.status = Status::SignatureRefused,
     .name = "SignatureRefused",
     .isSuccess = false,
     .installerExit = std::nullopt,
     .restartsService = false,
     .outcome = "failed",
     .meaning = "refused: the signature is missing, broken, expired, revoked or not trusted by this machine",
     .advice = "Run zarn-update verify on the bundle; download it again; check clock, root certificates and "
               "the way to the revocation lists"},
    {.status = Status::SignerRefused,
     .name = "SignerRefused",
     .isSuccess = false,
     .installerExit = std::nullopt,
     .restartsService = false,
     .outcome = "failed",
     .meaning = "refused: signed, but not by an approved certificate, or the list of approved ones could not "
                "be had, or policy does not allow its product or version",
     .advice = "Run zarn-update verify on the bundle; check the way to the account service; see zarn-update "
               "history"},
}};

constexpr const StatusFacts& row(Status status) {
  return *std::find_if(kStatuses.begin(), kStatuses.end(),
                       [&](const StatusFacts& facts) { return facts.status == status; });
}
/// A status without a case here does not compile: whoever adds one adds its row as well.
constexpr bool hasRow(Status status) {
  switch (status) {
    case Status::Installed:
    case Status::RebootRequired:
    case Status::RebootInitiated:
    case Status::Failed:
    case Status::ExitCodeUnknown:
    case Status::SignatureRefused:
    case Status::SignerRefused:
      return row(status).status == status;
  }
  return false;
}
static_assert(std::all_of(kStatuses.begin(), kStatuses.end(),
                          [](const StatusFacts& facts) { return hasRow(facts.status); }));

// What an unknown exit code becomes is looked up when the program is compiled, where a
// table without it is an error and not a read behind its end.
constexpr const StatusFacts& kFailed = row(Status::Failed);

}  // namespace

std::span<const StatusFacts> statuses() noexcept {
  return kStatuses;
}

const StatusFacts* factsOf(Status status) noexcept {
  const auto* const found = std::find_if(kStatuses.begin(), kStatuses.end(),
                                         [&](const StatusFacts& facts) { return facts.status == status; });
  return found == kStatuses.end() ? nullptr : found;
}

bool isSuccess(Status status) noexcept {
  const StatusFacts* const facts = factsOf(status);
  return facts != nullptr && facts->isSuccess;
}

const StatusFacts& judgeExitCode(std::uint32_t exitCode) noexcept {
  const auto* const found = std::find_if(kStatuses.begin(), kStatuses.end(), [&](const StatusFacts& facts) {
    return facts.installerExit == exitCode;
  });
  return found == kStatuses.end() ? kFailed : *found;
}

}  // namespace zarn
