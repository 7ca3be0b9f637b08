// Proves that a bundle comes from the publisher, runs it, and says how it went.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "trust/trust_result.h"
#include "update/run_installer.h"
#include "update/status.h"

namespace zarn {

/// What an install request needs of the rest of the service.
struct InstallCollaborators {
  /// Whether the system trusts the file's signature, and whether its signer is
  /// approved. Both are given a UTF-16 path.
  std::function<TrustResult(const std::wstring&)> checkIntegrity;
  std::function<TrustResult(const std::wstring&)> checkIdentity;
  /// Makes the process end so that it is started anew. Returns at once.
  std::function<void()> restart;
  RunInstallerOptions runOptions;
};

/// Stateless; any thread may use any object.
class InstallRequest {
 public:
  explicit InstallRequest(InstallCollaborators collaborators);

  /// Copies the bundle, checks the copy, runs it and collects its logs; under a
  /// lock of the whole process, so one install runs at a time. `exitCode` is
  /// written only when the copy got past all checks. Throws what the
  /// collaborators throw.
  Status Install(const std::wstring& bundlePath, std::int32_t& exitCode) const;

  /// Installed stands for "trusted" here; else SignatureRefused or SignerRefused.
  [[nodiscard]] Status CheckBundle(const std::wstring& path) const;

  /// CheckBundle for a caller's own file, which may be anything.
  [[nodiscard]] Status checkCallersBundle(const std::wstring& path) const;

 private:
  [[nodiscard]] Status installStaged(const std::wstring& stagedPath, std::int32_t& exitCode) const;
  [[nodiscard]] Status runChecks(const std::wstring& path) const;
  [[nodiscard]] Status finish(const std::wstring& stagedPath, std::uint32_t exitCode) const;

  InstallCollaborators collaborators_;
};

}  // namespace zarn
