#include <windows.h>

#include <array>
#include <optional>

#include "os/handles_win.h"
#include "os/process.h"
#include "system/system_info.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

constexpr std::size_t kLocaleCharacters = LOCALE_NAME_MAX_LENGTH;
static_assert(kLocaleCharacters == 85);
using LocaleText = std::array<wchar_t, kLocaleCharacters>;

std::string nativeModel() {
  SYSTEM_INFO info{};
  GetNativeSystemInfo(&info);
  // The suffix names what the service itself is built for.
  return std::string(architectureName(info.wProcessorArchitecture)) + "-x64";
}

std::optional<std::string> localeInfo(const LocaleText& localeName, LCTYPE type) {
  LocaleText text{};
  if (GetLocaleInfoEx(localeName.data(), type, text.data(), static_cast<int>(text.size())) == 0) {
    return std::nullopt;
  }
  return StringUtils::utf16to8(text.data());
}

std::optional<std::string> findLocaleName(LCID lcid) {
  LocaleText name{};
  // Without a name the queries below would answer for the invariant locale.
  if (LCIDToLocaleName(lcid, name.data(), static_cast<int>(name.size()), 0) == 0) return std::nullopt;
  const auto language = localeInfo(name, LOCALE_SISO639LANGNAME);
  const auto country = localeInfo(name, LOCALE_SISO3166CTRYNAME);
  if (!language || !country) return std::nullopt;
  return *language + "-" + *country;
}

/// Clock rate of the first processor in MHz; 0 when it is not known.
DWORD processorClockRate() {
  RegistryKey key;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", 0, KEY_READ,
                    key.receive()) != ERROR_SUCCESS) {
    return 0;
  }
  DWORD rate = 0;
  DWORD type = REG_NONE;
  DWORD size = sizeof(rate);
  const LSTATUS error =
      RegQueryValueExW(key.get(), L"~MHz", nullptr, &type, reinterpret_cast<BYTE*>(&rate), &size);
  return error == ERROR_SUCCESS && type == REG_DWORD ? rate : 0;
}

}  // namespace

void getPlatformInfo(std::string& vendor, std::string& device, std::string& model) {
  vendor = environmentVariable("ZARN_MEDIA_SERVER_INFO_VENDOR").value_or("Microsoft");
  device = environmentVariable("ZARN_MEDIA_SERVER_INFO_DEVICE").value_or("PC");
  model = environmentVariable("ZARN_MEDIA_SERVER_INFO_MODEL").value_or(nativeModel());
}

std::string getOSVersionString() {
  return formatOSVersion(GetVersion());
}

std::string getLocaleName(std::uint32_t lcid) {
  constexpr char fallback[] = "en-US";
  if (const auto name = findLocaleName(lcid)) return *name;
  logLine(LogLevel::Error, "Unable to get locale name for LCID %d, defaulting to %s", lcid, fallback);
  return fallback;
}

void logOSInformation() {
  logLine(LogLevel::Info, "Windows version: %s, language %s", getOSVersionString(),
          getLocaleName(GetThreadUILanguage()));
}

void logProcessorInformation() {
  SYSTEM_INFO info{};
  GetSystemInfo(&info);
  const std::string identifier = environmentVariable("PROCESSOR_IDENTIFIER").value_or(std::string());
  logLine(LogLevel::Info,
          "%d %d MHz processor(s): Architecture=%d, Level=%d, Revision=%d Processor Identifier=%s",
          info.dwNumberOfProcessors, processorClockRate(), info.wProcessorArchitecture, info.wProcessorLevel,
          info.wProcessorRevision, printable(identifier));
}

}  // namespace zarn
