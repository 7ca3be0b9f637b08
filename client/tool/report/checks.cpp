#include "client/tool/report/checks.h"

#include <algorithm>

#include "client/tool/report/explanations.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "update/record_folder.h"

namespace zarn::tool {
namespace {

// From winerror.h, which the native build does not have.
constexpr std::uint32_t kNoRevocationCheck = 0x80092012;      // CRYPT_E_NO_REVOCATION_CHECK
constexpr std::uint32_t kRevocationOffline = 0x80092013;      // CRYPT_E_REVOCATION_OFFLINE
constexpr std::uint32_t kRevocationCheckFailed = 0x800b010e;  // CERT_E_REVOCATION_FAILURE
constexpr std::uint32_t kNoSignature = 0x800b0100;            // TRUST_E_NOSIGNATURE

constexpr char kStart[] = "Start it: net start ZarnUpdateService; its log and the event log say why it ended";

/// Whether the first failure, such as the end after an update, is followed by a new start.
bool isRestarted(const Recovery& recovery) {
  return !recovery.steps.empty() && recovery.steps.front().action == "restart";
}

std::string joined(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts) result += (result.empty() ? "" : ", ") + text;
  return result;
}

/// What is to be said of a folder's rights; nothing when they are as they should be.
std::string problemOfRights(const Result<void>& rights) {
  if (rights) return {};
  if (rights.error() == SystemError(kFolderNotTrusted)) return "users may write to it";
  return systemErrorPhrase(rights.error());
}

}  // namespace

Finding judgeService(const Result<ServiceFacts>& service) {
  Finding finding{"service", false, "not installed", "Install the package"};
  if (!service) {
    if (isNotInstalled(service.error())) return finding;
    finding.found = systemErrorPhrase(service.error());
    finding.advice = "Ask as a user who may see services, such as an administrator";
    return finding;
  }
  finding.found = service->state + ", start type " + (service->start.empty() ? "unknown" : service->start) +
                  ", recovery " + recoveryInWords(service->recovery);
  const bool isDisabled = service->start == "disabled";
  if (!service->running) {
    finding.advice = isDisabled ? "Enable it: install the package again with START=auto" : kStart;
  } else if (service->recovery && !isRestarted(*service->recovery)) {
    finding.advice =
        "Install the package again: it sets the recovery, without which the service stays away after its "
        "first update";
  } else {
    finding.ok = true;
    finding.advice = isDisabled ? "Enable it: with the next start of Windows it will be away" : "";
  }
  return finding;
}

Finding judgeEndpoint(const std::string& problem) {
  if (problem.empty()) return {"endpoint", true, "the system answers", ""};
  return {"endpoint", false, problem,
          "See that the service runs; if it does, find out which program answers in its place"};
}

Finding judgeTempRights(const std::string& folder, const Result<void>& rights) {
  // The package's folder lets nobody else even ask.
  if (!rights && rights.error() == SystemError::accessDenied())
    return {"temp folder rights", true, "not known: only an administrator may look", ""};
  const std::string problem = problemOfRights(rights);
  if (problem.empty()) return {"temp folder rights", true, "only the system's and administrators'", ""};
  return {"temp folder rights", true, folder + ": " + problem,
          "Have a folder that only SYSTEM and administrators may write to: what others put there may be "
          "loaded by an installer"};
}

Finding judgeRecordFolder(const std::string& folder, const Result<void>& rights) {
  if (!rights && rights.error().isNotFound())
    return {"record folder", true, folder + ": not there yet, the service makes it", ""};
  const std::string problem = problemOfRights(rights);
  if (problem.empty()) return {"record folder", true, folder, ""};
  return {"record folder", true, folder + ": " + problem,
          "Restart the service, which keeps what is there under another name, and look who made it"};
}

Finding judgeRoom(const std::string& folder, const Result<std::uint64_t>& free) {
  if (!free) return {"disk", true, folder + ": " + systemErrorPhrase(free.error()), "Look at the drive"};
  const std::string found = fileSize(*free) + " free for " + folder;
  if (*free >= kAdvisedRoomBytes) return {"disk", true, found, ""};
  return {"disk", true, found,
          "Make room: " + fileSize(kAdvisedRoomBytes) + " are enough for every bundle and what it unpacks"};
}

Finding judgeLookUps(const std::vector<LookedUp>& names) {
  Finding finding{"name resolution", names.empty(), "nothing to look up", ""};
  for (const auto& [name, addresses, problem] : names) {
    finding.found = (&name == &names.front().name ? "" : finding.found + "; ") + name + ": " +
                    (problem.empty() ? joined(addresses) : problem);
    if (problem.empty()) finding.ok = true;
    if (!problem.empty()) finding.advice = "Look at the name and at this machine's name servers";
  }
  return finding;
}

Finding judgeList(const ListAnswer& answer) {
  Finding finding{"approved certificates", false, answer.host + ": " + answer.reason, ""};
  if (!answer.approved) {
    finding.advice =
        "Look at the way to the account service, its certificate and the list of authorities; every bundle "
        "is refused with 30005 until then";
    return finding;
  }
  finding.found =
      answer.host + ": " + std::to_string(*answer.approved) + " approved, " + fileSize(answer.bytes);
  finding.ok = *answer.approved != 0;
  if (!finding.ok)
    finding.advice = "Have the publisher's certificate approved: an empty list approves nobody";
  return finding;
}

Finding judgeClock(const ListAnswer& answer) {
  if (!answer.clockAheadSeconds)
    return {"clock", true, "not known, the account service did not say its time", ""};
  const std::int64_t ahead = *answer.clockAheadSeconds;
  const std::uint64_t apart =
      ahead < 0 ? 0 - static_cast<std::uint64_t>(ahead) : static_cast<std::uint64_t>(ahead);
  const std::string found =
      std::to_string(apart) + " s " + (ahead < 0 ? "behind" : "ahead of") + " the account service";
  if (apart <= kMostClockSeconds) return {"clock", true, found, ""};
  return {"clock", true, found,
          "Set this machine's clock: certificates are judged by it, and look expired or not yet valid"};
}

Finding judgeRevocation(const std::string& program, std::uint32_t code) {
  if (code == 0) return {"revocation", true, "could be looked up for " + program, ""};
  const Explanation* const row = explain(CodeKind::Trust, CodeKind::System, code);
  const std::string words =
      codeText(code) + ", " + (row != nullptr ? std::string(row->meaning) : systemErrorPhrase(code));
  const bool isRefused =
      code == kNoRevocationCheck || code == kRevocationOffline || code == kRevocationCheckFailed;
  if (isRefused) {
    return {"revocation", false, program + ": " + words,
            "Let this machine reach the addresses for revocation that certificates name (plain http, through "
            "the WinHTTP proxy: netsh winhttp show proxy); every bundle is refused with 30004 until then"};
  }
  if (code == kNoSignature) {
    return {"revocation", true, "cannot be tried, " + program + " is not signed",
            "Use the vendor's signed build, or look at 30004 for every bundle by verify"};
  }
  return {"revocation", true, "cannot be tried with " + program + ": " + words,
          "Look at the service's program, whose signature is not accepted"};
}

Finding asWarning(Finding finding) {
  finding.ok = true;
  return finding;
}

}  // namespace zarn::tool
