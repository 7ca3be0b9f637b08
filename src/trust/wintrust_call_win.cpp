#include "trust/wintrust_call_win.h"

namespace zarn {

WinTrustCall::WinTrustCall(const wchar_t* path) noexcept {
  file_.cbStruct = kFileInfoBytes;
  file_.pcwszFilePath = path;

  data_.cbStruct = kDataBytes;
  data_.dwUIChoice = WTD_UI_NONE;
  data_.fdwRevocationChecks = WTD_REVOKE_WHOLECHAIN;
  data_.dwUnionChoice = WTD_CHOICE_FILE;
  data_.pFile = &file_;
  data_.dwStateAction = WTD_STATEACTION_IGNORE;
  data_.dwProvFlags = WTD_REVOCATION_CHECK_CHAIN;
  data_.dwUIContext = WTD_UICONTEXT_INSTALL;
}

}  // namespace zarn
