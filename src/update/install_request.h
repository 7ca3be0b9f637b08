// Proves that a bundle comes from the publisher, runs it, and says how it went.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "trust/trust_result.h"
#include "trust/update_policy.h"
#include "update/bundle.h"
#include "update/install_record.h"
#include "update/run_installer.h"
#include "update/status.h"

namespace zarn {

/// What an install request needs of the rest of the service.
struct InstallCollaborators {
  /// Opens a bundle for whoever asks, as zarn::openBundle() does.
  std::function<Result<FileHandle>(const std::wstring&)> openBundle = zarn::openBundle;
  /// Whether the system trusts the signature of the file at a path; the log shows the second text.
  std::function<TrustResult(const std::wstring&, const std::wstring&)> checkIntegrity;
  /// Whether its signer is approved.
  std::function<IdentityResult(const std::wstring&)> checkIdentity;
  /// Whether this machine's policy lets the file at a path (UTF-8) run.
  std::function<PolicyResult(const std::string&)> checkPolicy;
  /// Hears of the version of each update that took effect.
  std::function<void(const ProductVersion&)> installed;
  /// Lets others see that a request is worked on, of which the record has no more than
  /// time, caller and path yet, until what it answers is let go. May be missing or
  /// answer null; whatever it throws is passed over.
  std::function<std::shared_ptr<void>(const InstallRecord&)> announce = {};
  /// Keeps the record of a request that has ended, before its caller has the
  /// answer. Whatever it throws is passed over.
  std::function<void(const InstallRecord&)> record;
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
  /// collaborators throw before an installer runs, after the request has been
  /// recorded; once one has run, nothing that fails changes the answer.
  Status Install(const Caller& caller, const std::wstring& bundlePath, std::int32_t& exitCode) const;

  /// The checks alone, for a caller's own file, which may be anything. Installed
  /// stands for "trusted" here; else SignatureRefused or SignerRefused.
  [[nodiscard]] Status checkCallersBundle(const std::wstring& path) const;

  /// Records an install that is not even begun. `reason` is the end of a sentence.
  void refuse(const Caller& caller, const std::wstring& bundlePath, const char* reason) const;

 private:
  struct Outcome {
    Status status;
    bool restartsService = false;
  };

  Outcome installRecorded(const Caller& caller, const std::wstring& bundlePath, std::int32_t& exitCode) const;
  Outcome install(const std::wstring& bundlePath, std::int32_t& exitCode, InstallRecord& record) const;
  Outcome installStaged(const std::wstring& stagedPath, std::int32_t& exitCode, InstallRecord& record) const;
  [[nodiscard]] Status CheckBundle(const std::wstring& path, InstallRecord& record) const;
  [[nodiscard]] Status runChecks(const std::wstring& path, const std::wstring& shownAs,
                                 InstallRecord& record) const;

  InstallCollaborators collaborators_;
};

}  // namespace zarn
