#include "update/rpc_caller_win.h"

#include <aclapi.h>
#include <rpc.h>
#include <sddl.h>

#include <memory>
#include <utility>
#include <vector>

#include "update/staged_installer.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

std::vector<std::byte> tokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind) {
  DWORD size = 0;
  GetTokenInformation(token, kind, nullptr, 0, &size);
  std::vector<std::byte> information(size);
  if (size == 0 || GetTokenInformation(token, kind, information.data(), size, &size) == 0) return {};
  return information;
}

/// "S-1-5-..."; empty when it cannot be had.
std::string userOf(const KernelHandle& token) {
  if (!token) return {};
  const auto user = tokenInformation(token.get(), TokenUser);
  wchar_t* text = nullptr;
  if (user.empty() ||
      ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, &text) == 0) {
    return {};
  }
  const LocalMemory owner(text);
  return StringUtils::utf16to8(text);
}

std::string imageOf(HANDLE process) {
  constexpr DWORD longest = 32'768;
  std::wstring path(longest, L'\0');
  DWORD length = longest;
  if (QueryFullProcessImageNameW(process, 0, path.data(), &length) == 0) return {};
  path.resize(length);
  return StringUtils::utf16to8(path);
}

/// Whether the token's owner may read the open file.
bool mayRead(const KernelHandle& token, HANDLE file) {
  constexpr SECURITY_INFORMATION parts =
      OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD error =
      GetSecurityInfo(file, SE_FILE_OBJECT, parts, nullptr, nullptr, nullptr, nullptr, &descriptor);
  const LocalMemory owner(descriptor);
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return false;
  }
  GENERIC_MAPPING mapping{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
  PRIVILEGE_SET privileges{};
  DWORD privilegesSize = sizeof(privileges);
  DWORD granted = 0;
  BOOL isGranted = FALSE;
  if (AccessCheck(descriptor, token.get(), FILE_GENERIC_READ, &mapping, &privileges, &privilegesSize,
                  &granted, &isGranted) == 0) {
    return false;
  }
  if (isGranted == FALSE) SetLastError(ERROR_ACCESS_DENIED);
  return isGranted != FALSE;
}

FileHandle refused(DWORD error) {
  SetLastError(failureCode(error));
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
  const LastErrorKeeper keeper;
  const RPC_STATUS status = RpcRevertToSelf();
  if (status != RPC_S_OK) logFatal("RpcRevertToSelf failed: %d", static_cast<std::int32_t>(status));
}

FileHandle openBundleAsCaller(const std::wstring& path) {
  const IoDeadline deadline(kOpenLimit);  // before: the caller may not open this thread
  Impersonation caller;
  if (caller.error() != 0) return refused(caller.error());
  if (caller.isComplete()) return openDiskFile(path);
  caller.revert();
  // Opening it with our rights must not reach beyond this machine, in our name.
  if (!caller.token() || !isOnThisMachine(path)) return refused(ERROR_ACCESS_DENIED);
  FileHandle file = openDiskFile(path);
  if (file && !mayRead(caller.token(), file.get())) file.reset();
  return file;
}

bool runAsCaller(const std::function<void()>& work) {
  const Impersonation caller;
  if (caller.error() != 0 || !caller.isComplete()) {
    SetLastError(caller.error() != 0 ? caller.error() : ERROR_BAD_IMPERSONATION_LEVEL);
    return false;
  }
  work();
  return true;
}

Requester currentRequester() {
  Requester requester;
  {
    const Impersonation caller;
    requester.caller.sid = userOf(caller.token());
  }
  unsigned long processId = 0;
  if (I_RpcBindingInqLocalClientPID(nullptr, &processId) != RPC_S_OK) return requester;
  if (processId != 0) requester.caller.processId = processId;
  KernelHandle opened(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, processId));
  if (!opened) return requester;
  const auto process = std::make_shared<KernelHandle>(std::move(opened));
  requester.caller.image = imageOf(process->get());
  requester.isGone = [process] { return WaitForSingleObject(process->get(), 0) == WAIT_OBJECT_0; };
  return requester;
}

}  // namespace zarn
