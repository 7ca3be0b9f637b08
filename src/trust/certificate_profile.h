// The certificate profile: the digests of the certificates that the publisher
// approves for signing bundles, fetched anew from its account service each time.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "trust/trust_result.h"

namespace zarn {

class HttpContext;

/// Brackets and braces of a profile may stand this deep in each other.
inline constexpr int kMaxProfileNesting = 32;
/// How many values may stand in it. No list of digests that fits into its largest size has more.
inline constexpr int kMaxProfileValues = 16'384;

/// The digests under "certs" of the JSON text `body`, exactly as they stand there;
/// nothing, and the reason logged at level Error, when it cannot be read. An empty
/// list is a list. `body` may be anything; its size is the caller's to bound.
[[nodiscard]] std::optional<ApprovedDigests> parseCertificateProfile(const std::string& body);

/// Fetches the profile from one host. Keeps nothing between fetches; may be used
/// from any thread.
class CertificateProfileClient {
 public:
  static constexpr std::uint32_t kTimeoutSeconds = 60;
  static constexpr std::int64_t kMaxBodyBytes = std::int64_t{1} << 20;

  /// Runs a prepared request and answers it once it is complete, or throws.
  using Transfer = std::function<std::shared_ptr<HttpContext>(std::shared_ptr<HttpContext>)>;

  /// `host` is "host" or "host:port"; anything else makes every fetch fail. For
  /// tests: another limit on the whole transfer, and a file of certificate
  /// authorities instead of the service's own.
  explicit CertificateProfileClient(std::string host, std::uint32_t timeoutSeconds = kTimeoutSeconds,
                                    std::string authorities = {});

  /// For tests: another way to transfer.
  CertificateProfileClient(std::string host, Transfer transfer);

  /// The approved digests; when the profile cannot be had, the reason, which is logged at
  /// level Error and told by an event, too. Blocks until the transfer has ended,
  /// successfully or not.
  [[nodiscard]] ProfileAnswer fetch() const;

 private:
  using Response = tl::expected<std::shared_ptr<HttpContext>, ProfileNotHad>;

  [[nodiscard]] Response receive() const;
  [[nodiscard]] tl::unexpected<ProfileNotHad> notHad(std::string_view reason) const;
  void reportNotHad(std::string_view reason) const noexcept;

  std::string host_;
  std::uint32_t timeoutSeconds_ = kTimeoutSeconds;
  std::string authorities_;
  Transfer transfer_;
};

/// From the account service that accountServiceHost() names.
[[nodiscard]] ProfileAnswer FetchCertificateProfile();

}  // namespace zarn
