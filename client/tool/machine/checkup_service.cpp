// The checks of `doctor` on the service's endpoint and on what its program is signed with.
#include <windows.h>

#include <optional>

#include "client/tool/machine/checkup.h"
#include "client/tool/machine/service.h"
#include "client/tool/report/outcome.h"
#include "client/update_client.h"
#include "trust/certificate_integrity.h"
#include "util/file_utils.h"
#include "util/structured_exception.h"

namespace zarn::tool {

Finding checkEndpoint() {
  const auto answer = client::UpdateClient().probe();
  return judgeEndpoint(answer.ok() ? "" : noAnswer(answer.error(), queryService()).error);
}

Finding checkRevocation(const std::string& program) {
  const std::wstring path = FileUtils::toPath(program).native();
  std::optional<TrustResult> result;
  const std::uint32_t exception =
      callCatching([&] { result = CheckCertificateIntegrity(systemTrustApi(), path); }, catchEvery);
  if (!result) return judgeRevocation(program, exception);
  // A file without a signature is refused before the provider is asked, with any code.
  const auto signature = systemTrustApi().querySignature(path);
  const bool isUnsigned =
      !signature && signature.error() == SystemError(static_cast<DWORD>(CRYPT_E_NO_MATCH));
  const auto code = static_cast<std::uint32_t>(isUnsigned ? TRUST_E_NOSIGNATURE : result->code());
  return judgeRevocation(program, code);
}

}  // namespace zarn::tool
