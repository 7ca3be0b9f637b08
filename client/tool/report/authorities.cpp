#include "client/tool/report/authorities.h"

#include <chrono>

#include "update/install_record.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

/// Time enough to distribute another list to many machines.
constexpr std::int64_t kSoonSeconds = std::int64_t{30} * 24 * 60 * 60;

std::string dateOf(std::int64_t seconds) {
  const std::chrono::system_clock::time_point time{std::chrono::seconds(seconds)};
  return isoTime(time).substr(0, 10);
}

std::string countedCertificates(const AuthorityList& list) {
  std::string text = std::to_string(list.certificates) + " certificate(s)";
  if (list.expired != 0) text += ", expired: " + std::to_string(list.expired);
  if (list.nextExpiry) text += ", the next expires on " + dateOf(*list.nextExpiry) + ": " + list.nextSubject;
  return text;
}

}  // namespace

std::string authoritiesInWords(const AuthorityList& list) {
  if (list.path.empty()) return "unknown";
  return printable(list.path) + (list.isChosen ? " (chosen): " : " (shipped): ") +
         printable(list.problem.empty() ? countedCertificates(list) : list.problem);
}

Json authoritiesObject(const AuthorityList& list) {
  const bool isRead = list.problem.empty() && !list.path.empty();
  return {{"file", list.path},
          {"chosen", list.isChosen},
          {"certificates", isRead ? Json(list.certificates) : Json(nullptr)},
          {"expired", isRead ? Json(list.expired) : Json(nullptr)},
          {"nextExpiry", list.nextExpiry ? Json(dateOf(*list.nextExpiry)) : Json(nullptr)},
          {"problem", list.problem.empty() ? Json(nullptr) : Json(list.problem)}};
}

Finding judgeAuthorities(const AuthorityList& list, std::int64_t now) {
  const bool haveAllExpired = list.problem.empty() && list.expired == list.certificates;
  if (!list.problem.empty() || haveAllExpired) {
    return {
        "authorities", false, list.path + ": " + (haveAllExpired ? countedCertificates(list) : list.problem),
        list.isChosen ? "Choose a list again: a PEM file with certificates; nothing is approved without it"
                      : "Install the package again: it puts the shipped list back"};
  }
  // Of the many that are shipped some always come to their end, and rarely the one that counts.
  const bool endsSoon = list.nextExpiry && *list.nextExpiry - now < kSoonSeconds;
  const bool isWarned = list.isChosen && (endsSoon || list.expired != 0);
  return {"authorities", true, list.path + ": " + countedCertificates(list),
          isWarned ? "Distribute a list with the authorities that come after these" : ""};
}

}  // namespace zarn::tool
