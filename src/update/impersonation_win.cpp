#include "update/impersonation_win.h"

#include <aclapi.h>
#include <rpc.h>

#include <utility>

#include "update/bundle.h"
#include "util/io_deadline.h"
#include "util/logging.h"

namespace zarn {
namespace {

/// Whether the token's owner may read the open file.
Result<void> checkMayRead(const KernelHandle& token, HANDLE file) {
  constexpr SECURITY_INFORMATION parts =
      OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
  LocalMemory descriptor;
  const DWORD error =
      GetSecurityInfo(file, SE_FILE_OBJECT, parts, nullptr, nullptr, nullptr, nullptr, descriptor.receive());
  if (error != ERROR_SUCCESS) return failure(error);
  GENERIC_MAPPING mapping{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
  PRIVILEGE_SET privileges{};
  DWORD privilegesSize = sizeof(privileges);
  DWORD granted = 0;
  BOOL isGranted = FALSE;
  if (AccessCheck(descriptor.get(), token.get(), FILE_GENERIC_READ, &mapping, &privileges, &privilegesSize,
                  &granted, &isGranted) == 0) {
    return lastFailure();
  }
  if (isGranted == FALSE) return failure(SystemError::accessDenied());
  return {};
}

}  // namespace

Impersonation::Impersonation() noexcept
    : error_(static_cast<DWORD>(RpcImpersonateClient(nullptr))), isActive_(error_ == RPC_S_OK) {
  if (!isActive_) return;
  // The token is opened with our own rights: the caller need not be allowed to.
  if (OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token_.receive()) == 0) return;
  SECURITY_IMPERSONATION_LEVEL level = SecurityAnonymous;
  DWORD size = sizeof(level);
  isComplete_ = GetTokenInformation(token_.get(), TokenImpersonationLevel, &level, size, &size) != 0 &&
                level >= SecurityImpersonation;
}

void Impersonation::revert() noexcept {
  if (!std::exchange(isActive_, false)) return;
  const RPC_STATUS status = RpcRevertToSelf();
  if (status != RPC_S_OK) logFatal("RpcRevertToSelf failed: %d", static_cast<std::int32_t>(status));
}

Result<FileHandle> openBundleAsCaller(const std::wstring& path) {
  // Armed first: a caller whose rights the thread has may not open the thread, which
  // cancelling its input and output takes.
  const IoDeadline deadline(kOpenLimit);
  Impersonation caller;
  if (caller.error() != 0) return failure(caller.error());
  if (caller.isComplete()) return openDiskFile(path);
  caller.revert();
  // Opening it with our rights must not reach beyond this machine, in our name.
  if (!caller.token() || !isOnThisMachine(path)) return failure(SystemError::accessDenied());
  auto file = openDiskFile(path);
  if (!file) return file;
  if (const auto checked = checkMayRead(caller.token(), file->get()); !checked)
    return failure(checked.error());
  return file;
}

Result<void> runAsCaller(const std::function<void()>& work) {
  const Impersonation caller;
  if (caller.error() != 0) return failure(caller.error());
  if (!caller.isComplete()) return failure(ERROR_BAD_IMPERSONATION_LEVEL);
  work();
  return {};
}

}  // namespace zarn
