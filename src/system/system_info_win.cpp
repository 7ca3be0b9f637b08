#include "system/system_info.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "os/process.h"
#include "os/registry.h"
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
std::uint32_t processorClockRate() {
  const auto key = os::openRegistryKey(HKEY_LOCAL_MACHINE,
                                       L"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", KEY_READ);
  return key ? os::readRegistryNumber(key->get(), L"~MHz").value_or(0) : 0;
}

}  // namespace

std::string_view architectureName(std::uint16_t code) noexcept {
  using Entry = std::pair<std::uint16_t, std::string_view>;
  constexpr std::array<Entry, 5> names = {{{0, "x86"}, {5, "arm"}, {6, "ia64"}, {9, "x64"}, {12, "arm64"}}};
  const auto* const found =
      std::find_if(names.begin(), names.end(), [&](const Entry& entry) { return entry.first == code; });
  return found != names.end() ? found->second : std::string_view();
}

std::string formatOSVersion(std::uint32_t version) {
  return formatPrintf("%d.%d (Build %d)", version & 0xFFU, (version >> 8U) & 0xFFU, version >> 16U);
}

// A variable that is set to an empty text counts: that is how a text is left out.
void getPlatformInfo(std::string& vendor, std::string& device, std::string& model) {
  vendor = environmentVariable("ZARN_MEDIA_SERVER_INFO_VENDOR").value_or("Microsoft");
  device = environmentVariable("ZARN_MEDIA_SERVER_INFO_DEVICE").value_or("PC");
  model = environmentVariable("ZARN_MEDIA_SERVER_INFO_MODEL").value_or(nativeModel());
}

// The version that the program's manifest names is the one to show: what runs above it
// behaves as that version does.
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
