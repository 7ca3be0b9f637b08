#include <windows.h>

#include "os/process.h"
#include "service/mitigations.h"
#include "util/log_win32_error.h"
#include "util/logging.h"
#include "util/product_names.h"

namespace zarn {
namespace {

template <typename Policy>
void apply(PROCESS_MITIGATION_POLICY kind, Policy policy, const char* words) {
  if (SetProcessMitigationPolicy(kind, &policy, sizeof(policy)) != FALSE) return;
  logWin32Error(LogLevel::Warn, "A mitigation could not be set: %s", words);
}

}  // namespace

void applyMitigations() {
  PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY links{};
  const bool enforce = environmentVariable(names::kEnforceRedirectionTrustVariable.narrow) == "1";
  links.EnforceRedirectionTrust = enforce ? 1U : 0U;
  links.AuditRedirectionTrust = enforce ? 0U : 1U;
  apply(ProcessRedirectionTrustPolicy, links, "redirection trust");

  PROCESS_MITIGATION_IMAGE_LOAD_POLICY images{};
  images.NoRemoteImages = 1;
  images.NoLowMandatoryLabelImages = 1;
  images.PreferSystem32Images = 1;
  apply(ProcessImageLoadPolicy, images, "image loads");

  PROCESS_MITIGATION_EXTENSION_POINT_DISABLE_POLICY extensions{};
  extensions.DisableExtensionPoints = 1;
  apply(ProcessExtensionPointDisablePolicy, extensions, "extension points");

  PROCESS_MITIGATION_STRICT_HANDLE_CHECK_POLICY handles{};
  handles.RaiseExceptionOnInvalidHandleReference = 1;
  handles.HandleExceptionsPermanentlyEnabled = 1;
  apply(ProcessStrictHandleCheckPolicy, handles, "strict handles");
}

}  // namespace zarn
