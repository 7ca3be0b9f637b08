#include <windows.h>

#include <memory>

#include "os/error_text.h"
#include "os/handles_win.h"
#include "os/text.h"

namespace zarn {

std::string systemErrorText(std::uint32_t code) {
  wchar_t* text = nullptr;
  // With ALLOCATE_BUFFER the "buffer" argument is the address of a pointer.
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
      code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  const LocalMemory owner(text);
  if (length == 0 || text == nullptr) return {};
  return os::utf8FromWide({text, length}).value_or(std::string());
}

}  // namespace zarn
