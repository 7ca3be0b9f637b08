// Reading the certificate profile.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace zarn {

/// Brackets and braces of a profile may stand this deep in each other.
inline constexpr int kMaxProfileNesting = 32;

/// The digests under "certs" of the JSON text `body`, exactly as they stand there.
/// What cannot be read is logged at level Error and ends the reading: the set
/// then holds what was read before. `body` may be anything; its size is the
/// caller's to bound.
[[nodiscard]] std::set<std::string> parseCertificateProfile(const std::string& body);

}  // namespace zarn
