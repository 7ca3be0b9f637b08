// App-data paths come from any local user: what counts as a folder on a drive begins
// with the drive and has no device in it, whichever way its separators lean.
#include <algorithm>

#include "fuzz.h"
#include "os/text.h"
#include "util/path_judge.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

using zarn::fuzz::require;

/// As plainly as it can be said, whatever the judge does.
bool isDevice(std::string component) {
  component.resize(std::min(component.find_first_of(".:"), component.size()));
  while (!component.empty() && component.back() == ' ') component.pop_back();
  for (char& c : component) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  for (const char* name : {"nul", "con", "aux", "prn", "conin$", "conout$", "clock$"})
    if (component == name) return true;
  for (const char* number :
       {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "\xC2\xB9", "\xC2\xB2", "\xC2\xB3"})
    if (component == std::string("com") + number || component == std::string("lpt") + number) return true;
  return false;
}

void checkLocalFolder(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  if (path.starts_with(R"(\\?\)")) path.erase(0, 4);
  require(path.size() > 2 && path[1] == ':' && path[2] == '\\');
  path += '\\';
  for (std::size_t begin = 0; begin < path.size();) {
    const std::size_t end = path.find('\\', begin);
    const std::string component = path.substr(begin, end - begin);
    require(!isDevice(component) && (begin == 0 || component.find(':') == std::string::npos));
    begin = end + 1;
  }
}

#ifdef _WIN32
/// The system takes the path for no device and for the folder that we take it for.
void askTheSystem(const std::string& path, const std::string& resolved) {
  using IsDevice = ULONG(WINAPI*)(PCWSTR);
  static const auto isDeviceHere = reinterpret_cast<IsDevice>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll"), "RtlIsDosDeviceName_U")));
  const auto wide = zarn::os::wideFromUtf8(path), wanted = zarn::os::wideFromUtf8(resolved.substr(4));
  if (!wide || !wanted || path[1] != ':') return;
  std::wstring full(2 * wide->size() + 8, L'\0');
  full.resize(GetFullPathNameW(wide->c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
  while (full.size() > 3 && full.ends_with(L'\\')) full.pop_back();
  require(full == *wanted && isDeviceHere(wide->c_str()) == 0);
}
#else
void askTheSystem(const std::string& /*path*/, const std::string& /*resolved*/) {}
#endif

void judgePathJudge(const std::string& path) {
  std::string exchanged = path;
  for (char& c : exchanged) c = c == '/' ? '\\' : c == '\\' ? '/' : c;
  const zarn::PathKind kind = zarn::judgePath(path);
  require(zarn::judgePath(exchanged) == kind);
  if (kind != zarn::PathKind::LocalFolder) return;
  checkLocalFolder(path);
  const std::string resolved = zarn::resolveDots(path);
  require(zarn::judgePath(resolved) == kind && zarn::resolveDots(resolved) == resolved);
  askTheSystem(path, resolved);
}

const zarn::fuzz::Target kPathJudge("path_judge", judgePathJudge);

}  // namespace
