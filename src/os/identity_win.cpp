#include "os/identity_win.h"

#include <sddl.h>

#include <array>
#include <cstddef>

#include "os/text.h"

namespace zarn {

std::string identifierText(PSID identifier) {
  wchar_t* text = nullptr;
  if (ConvertSidToStringSidW(identifier, &text) == 0) return {};
  const LocalMemory owner(text);
  return os::utf8FromWide(text).value_or(std::string());
}

std::string userOf(const KernelHandle& token) {
  if (!token) return {};
  alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user{};
  DWORD size = static_cast<DWORD>(user.size());
  if (GetTokenInformation(token.get(), TokenUser, user.data(), size, &size) == 0) return {};
  return identifierText(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid);
}

}  // namespace zarn
