// The list of authorities that may vouch for the account service, in words. Texts are UTF-8.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/tool/report/answer.h"
#include "client/tool/report/findings.h"

namespace zarn::tool {

struct AuthorityList {
  std::string path;
  /// An administrator's, in the place of the one that was shipped.
  bool isChosen = false;
  /// What is wrong with it, a clause; empty when it could be read.
  std::string problem;
  int certificates = 0;
  int expired = 0;
  /// The one that expires next: when, in seconds since the epoch, and its subject.
  std::optional<std::int64_t> nextExpiry{};
  std::string nextSubject{};
};

/// "PATH (shipped): 140 certificates, the next expires on 2026-12-01: CN=...".
[[nodiscard]] std::string authoritiesInWords(const AuthorityList& list);
[[nodiscard]] Json authoritiesObject(const AuthorityList& list);

/// A list with which nobody can vouch for the account service is wrong; an authority of a
/// chosen list that has expired, or soon will, is worth a warning. `now`: seconds since the epoch.
[[nodiscard]] Finding judgeAuthorities(const AuthorityList& list, std::int64_t now);

}  // namespace zarn::tool
