// The answers of the trust checks. There is no way to have one by default, none that
// is both a refusal and the number 0, and "verified" is the checks' alone to say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <tl/expected.hpp>

#include "os/system_error.h"

namespace zarn {

class TrustApi;
struct IdentityResult;

/// SHA-256 digests of certificates, as they stand in the certificate profile.
using ApprovedDigests = std::set<std::string>;

/// Why the digests cannot be had.
struct ProfileNotHad {
  std::string reason;  ///< a few words, such as "HTTP 404"; not yet fit to be shown
};

/// The approved digests, which may be none at all, or why there are none to be had.
using ProfileAnswer = tl::expected<ApprovedDigests, ProfileNotHad>;
using ProfileSource = std::function<ProfileAnswer()>;

class [[nodiscard]] TrustResult {
 public:
  /// `code` is a Win32 error, a provider's status or a code of ours. A failed call
  /// may leave 0 as its error: that becomes failureCode(0).
  static constexpr TrustResult refused(std::uint32_t code) noexcept { return TrustResult(failureCode(code)); }

  [[nodiscard]] constexpr bool isVerified() const noexcept { return code_ == 0; }

  /// 0 exactly when verified.
  [[nodiscard]] constexpr std::int32_t code() const noexcept { return static_cast<std::int32_t>(code_); }

 private:
  friend TrustResult CheckCertificateIntegrity(TrustApi& api, const std::wstring& path,
                                               const std::wstring& shownAs);
  friend IdentityResult CheckCertificateIdentity(TrustApi& api, const std::wstring& path,
                                                 const ProfileSource& fetchProfile);

  static constexpr TrustResult verified() noexcept { return TrustResult(0); }

  explicit constexpr TrustResult(std::uint32_t code) noexcept : code_(code) {}

  std::uint32_t code_;
};

/// Whom a file's first signature names. The names are what the certificate's author
/// chose to write there.
struct Signer {
  /// SHA-256 of the certificate, 64 lower-case hexadecimal digits; empty when it could not be had.
  std::string digest;
  /// "CN=..., O=..., L=..., S=..., C=...", UTF-8, without what the subject lacks.
  std::string subject;
};

/// How far the certificate profile came into a check. A profile that approves nobody
/// was had: it refuses every signer, and no failure is to blame.
enum class ProfileState : std::uint8_t { NotAsked, NotHad, Had };

/// What the identity check decided, and what it learnt on the way.
struct [[nodiscard]] IdentityResult {
  TrustResult result;
  std::optional<Signer> signer = std::nullopt;  ///< nothing when no certificate was found
  ProfileState profile = ProfileState::NotAsked;
  std::size_t approvedDigests = 0;  ///< of the profile; 0 unless it was had
  std::string whyNotHad = {};       ///< of the profile, when it was not
};

}  // namespace zarn
