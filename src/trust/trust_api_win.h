// What WinVerifyTrust is asked. Includes windows.h: only for files that call Windows.
#pragma once

#include <windows.h>

#include <wintrust.h>

#include <cstddef>

namespace zarn {

/// The question "does the signature embedded in this file hold, down to a trusted
/// root and with no certificate of the whole chain revoked", put without any user
/// interface. No verification state is kept, so no closing call is due. The path
/// must outlive the object.
class WinTrustCall {
 public:
  explicit WinTrustCall(const wchar_t* path) noexcept;
  WinTrustCall(const WinTrustCall&) = delete;
  WinTrustCall& operator=(const WinTrustCall&) = delete;

  [[nodiscard]] WINTRUST_DATA* data() noexcept { return &data_; }

 private:
  // Newer headers append pSignatureSettings, which is not used: the size names the
  // members up to dwUIContext only.
  static constexpr DWORD kFileInfoBytes = 32;
  static constexpr DWORD kDataBytes = 80;
  static_assert(sizeof(WINTRUST_FILE_INFO) == kFileInfoBytes);
  static_assert(offsetof(WINTRUST_DATA, dwUIContext) + sizeof(DWORD) == kDataBytes);

  WINTRUST_FILE_INFO file_{};
  WINTRUST_DATA data_{};
};

}  // namespace zarn
