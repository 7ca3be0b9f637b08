#include "client/tool/report/outcome_words.h"

#include <algorithm>
#include <string_view>

#include "client/tool/report/explanations.h"
#include "os/error_text.h"
#include "os/text.h"
#include "update/status.h"

namespace zarn::tool {
namespace {

constexpr auto kUseSmallerBundle = os::joinedLiterals("Use a bundle of at most ", kMaximumBundleWords);
constexpr char kSeeInstallerLogs[] = "Look into Installer Logs; the publisher knows its installer's codes";

/// What a check means that decided, in front of its detail, and what to do where the detail
/// is no code that has an advice of its own.
struct CheckFacts {
  Check check;
  std::string_view meaning;
  std::string_view advice;
};
constexpr CheckFacts kCheckFacts[] = {
    {Check::Open, "the bundle could not be opened", "Check the path, and the rights to the file"},
    {Check::Size, "the bundle is too large", kUseSmallerBundle},
    {Check::Extension, "the bundle's extension is another", "Rename the file so that it ends in \".exe\""},
    {Check::Copy, "the bundle could not be copied",
     "See the rights to the service's temp folder, and the room on its disk"},
    {Check::Integrity, "refused: the signature is not accepted", "Do not run the bundle; download it again"},
    {Check::Identity, "refused",
     "Use a bundle that an approved certificate signed, or have the certificate approved"},
    {Check::Policy, "refused: this machine's policy does not allow it",
     "Use a bundle that this machine's policy allows"},
};

constexpr char kNoListAdvice[] =
    "Check the way to the account service with zarn-update doctor, and the authorities in Resources beside "
    "the service's program";

const CheckFacts* factsOfCheck(std::string_view name) noexcept {
  const auto* const found =
      std::ranges::find_if(kCheckFacts, [&](const CheckFacts& facts) { return nameOf(facts.check) == name; });
  return found == std::end(kCheckFacts) ? nullptr : found;
}

/// The code that a detail begins with, as describeSystemError() writes it.
std::optional<std::uint32_t> codeAtBeginning(std::string_view detail) {
  return parseCode(detail.substr(0, detail.find(',')));
}

const Explanation* installerRow(std::uint32_t code) {
  if (const Explanation* const row = explain(CodeKind::Installer, code)) return row;
  const auto inside = win32ErrorInside(code);
  return inside ? explain(CodeKind::Installer, *inside) : nullptr;
}

OutcomeWords notStarted(std::uint32_t code) {
  const Explanation* const row = explain(CodeKind::System, code);
  const std::string words =
      row != nullptr ? codeText(code) + ", " + std::string(row->meaning) : describeSystemError(code);
  return {"the installer could not be started: " + words,
          std::string(row != nullptr ? row->advice : "Download the bundle again; see the service's log")};
}

}  // namespace

const CheckRecord* decidingCheck(const InstallRecord& record) noexcept {
  // Whatever was not looked at then, or is not known here, let it be run.
  if (record.exitCode) return nullptr;
  const auto check = std::ranges::find_if(
      record.checks, [](const CheckRecord& one) { return one.verdict != nameOf(Verdict::Passed); });
  return check == record.checks.end() ? nullptr : &*check;
}

OutcomeWords statusWords(Status status) {
  const auto code = static_cast<std::uint32_t>(status);
  if (const Explanation* const row = explain(CodeKind::ServiceStatus, CodeKind::System, code))
    return {std::string(row->meaning), std::string(row->advice)};
  return {systemErrorPhrase(code), {}};
}

OutcomeWords installerFailure(std::uint32_t code, std::optional<bool> wasStarted) {
  if (wasStarted == false) return notStarted(code);
  const Explanation* const row = installerRow(code);
  if (row == nullptr) {
    // What an installer means by a number of the system's can be something else.
    const Explanation* const error = explain(CodeKind::System, code);
    if (!wasStarted && error != nullptr) {
      return {"the installer failed, or could not be started: " + codeText(code) + ", " +
                  std::string(error->meaning),
              std::string(error->advice)};
    }
    const std::string words = error != nullptr ? ", for Windows: " + std::string(error->meaning) : "";
    return {"the installer failed with " + codeText(code) + words, kSeeInstallerLogs};
  }
  std::string advice(row->advice);
  // "the installer crashed" and the like are whole clauses.
  if (row->meaning.starts_with("the installer "))
    return {std::string(row->meaning) + " (" + codeText(code) + ")", std::move(advice)};
  return {"the installer failed with " + codeText(code) + ", " + std::string(row->meaning),
          std::move(advice)};
}

std::optional<OutcomeWords> checkWords(const CheckRecord& decided) {
  const CheckFacts* const facts = factsOfCheck(decided.name);
  if (facts == nullptr || decided.detail.empty()) return std::nullopt;
  OutcomeWords words{std::string(facts->meaning), std::string(facts->advice)};
  const auto code = codeAtBeginning(decided.detail);
  if (code && *code == static_cast<std::uint32_t>(Status::SignerRefused)) return std::nullopt;
  const Explanation* const row = code ? explain(CodeKind::Trust, CodeKind::System, *code) : nullptr;
  if (row != nullptr) {
    words.meaning += ": " + codeText(*code) + ", " + std::string(row->meaning);
    words.advice = row->advice;
  } else {
    words.meaning += ": " + decided.detail;
    const bool isFailure = decided.verdict == nameOf(Verdict::Failed);
    if (facts->check == Check::Identity && isFailure) words.advice = kNoListAdvice;
  }
  return words;
}

OutcomeWords outcomeWords(const InstallRecord& record) {
  if (!record.reason.empty()) {
    const std::string reason = record.reason.substr(0, record.reason.find_last_not_of('.') + 1);
    return {"not begun: " + reason, "Try again later"};
  }
  const bool isSuccessful = isSuccess(record.status);
  if (record.status == Status::Failed && record.exitCode)
    return installerFailure(*record.exitCode, record.installerStarted);
  const CheckRecord* const decided = isSuccessful ? nullptr : decidingCheck(record);
  const auto words = decided != nullptr ? checkWords(*decided) : std::nullopt;
  return words.value_or(statusWords(record.status));
}

Json decidedByObject(const CheckRecord* decided, const char* source) {
  if (decided == nullptr) return nullptr;
  return {{"name", decided->name},
          {"verdict", decided->verdict},
          {"detail", decided->detail},
          {"source", source}};
}

}  // namespace zarn::tool
