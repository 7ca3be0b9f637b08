// What the service would decide on a file, worked out in this process.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "client/tool/captured_log.h"
#include "os/handles_win.h"
#include "trust/trust_api.h"
#include "trust/trust_result.h"

namespace zarn::tool {

/// One check of an install request, and how it ended.
struct Step {
  const char* name;
  const char* verdict = "not reached";
  std::string detail = {};
};

/// The checks of an install request on one file, in its order, each but the size by
/// the same function; nothing is copied or run. The first that is not passed decides.
/// A structured exception inside a trust check is that check's failure.
class Verification {
 public:
  /// `log` is the process's log; it and `api` outlive the object.
  Verification(std::wstring path, const CapturedLog& log, TrustApi& api = systemTrustApi());

  /// What an install request would answer if it refused; kInstalled for "would be run".
  std::int32_t run();

  [[nodiscard]] const auto& steps() const noexcept { return steps_; }
  /// What to do about the deciding check; a sentence without a full stop.
  [[nodiscard]] const std::string& advice() const noexcept { return advice_; }
  [[nodiscard]] const std::optional<Signer>& signer() const noexcept { return signer_; }
  [[nodiscard]] bool signatureHolds() const noexcept { return signatureHolds_; }
  /// The identity check's answer; nothing when it did not come to that.
  [[nodiscard]] const std::optional<IdentityResult>& identity() const noexcept { return identity_; }
  [[nodiscard]] std::int64_t bytes() const noexcept { return bytes_; }

 private:
  enum StepIndex : std::size_t { kOpen, kSize, kExtension, kIntegrity, kIdentity, kPolicy };

  bool open();
  bool size();
  bool extension();
  bool integrity();
  bool checkIdentity();
  bool policy();
  void findSigner();
  bool pass(StepIndex step, std::string detail);
  bool stop(StepIndex step, const char* verdict, std::string detail, std::string advice);
  bool stop(StepIndex step, const char* verdict, std::uint32_t code);
  bool stopForException(StepIndex step, std::uint32_t exception);

  std::wstring path_;
  const CapturedLog& log_;
  FileHandle file_;
  std::int64_t bytes_ = -1;
  bool signatureHolds_ = false;
  TrustApi& api_;
  std::optional<Signer> signer_;
  std::optional<IdentityResult> identity_;
  std::string advice_ = "Nothing";
  std::array<Step, 6> steps_{Step{"open"},      Step{"size"},     Step{"extension"},
                             Step{"integrity"}, Step{"identity"}, Step{"policy"}};
};

}  // namespace zarn::tool
