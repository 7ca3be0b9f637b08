// What `verify` found out about a bundle, and how it says that.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/tool/report/answer.h"
#include "update/install_record.h"
#include "update/status.h"

namespace zarn::tool {

/// Texts are UTF-8. Those of the signer are what the author of its certificate chose.
struct VerificationReport {
  /// What an install request would answer if it refused; Status::Installed for "would be run".
  Status status = Status::Failed;
  /// The checks of an install request, in its order.
  std::vector<CheckRecord> steps;

  struct Signer {
    std::string digest;  ///< SHA-256 of the certificate, hexadecimal
    std::string subject;
  };
  std::optional<Signer> signer;
  /// What a refused signature says of its signer is only a claim.
  bool signatureHolds = false;

  /// The account service's list of approved digests; nothing when it was not asked.
  struct Profile {
    std::size_t digests = 0;
    bool holdsSigner = false;
    bool isHad = true;  ///< else it was asked for in vain, and the others say nothing
  };
  std::optional<Profile> profile;
  std::string host;  ///< of the account service

  std::int64_t bytes = -1;  ///< of the file; -1 when it could not be told
  /// The lines that the service would log, as they would stand there.
  std::vector<std::string> log;
};

[[nodiscard]] Answer verificationAnswer(const std::string& bundle, const VerificationReport& report);

}  // namespace zarn::tool
