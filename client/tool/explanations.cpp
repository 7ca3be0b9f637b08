#include "client/tool/explanations.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace zarn::tool {
namespace {

using enum CodeKind;

constexpr Explanation kExplanations[] = {
    {Status, 0, "", "installed", "Nothing; the service ends itself with 1467 and is started again"},
    {Status, 0, "", "for a check: signature and signer are trusted", "Nothing"},
    {Status, 30000, "", "installed, and a reboot is required to complete it (installer exit code 3010)",
     "Reboot when it suits"},
    {Status, 30001, "", "installed, and the installer began a reboot (installer exit code 1641)",
     "Nothing; the machine reboots"},
    {Status, 30002, "",
     "not installed: the bundle could not be read, is larger than 1 GiB, does not end in \".exe\", could "
     "not be copied or started, or the installer failed with another exit code",
     "Run zarn-update verify on the bundle, and zarn-update explain on the installer's exit code if there is "
     "one"},
    {Status, 30003, "", "the installer's exit code could not be read, or it was 30003",
     "See whether the new version is there, and look into Installer Logs"},
    {Status, 30004, "",
     "refused: the signature is missing, broken, expired, revoked or not trusted by this machine",
     "Run zarn-update verify on the bundle; download it again; check clock, root certificates and the way "
     "to the revocation lists"},
    {Status, 30005, "",
     "refused: signed, but not by an approved certificate, or the list of approved ones could not be had, or "
     "policy does not allow its product or version",
     "Run zarn-update verify on the bundle; check the way to the account service; see zarn-update history"},

    {Installer, 0, "ERROR_SUCCESS", "installed", "Nothing"},
    {Installer, 259, "STILL_ACTIVE", "the installer was still running after ten minutes, and goes on",
     "Wait for it to end, then see which version is there; do not install again meanwhile"},
    {Installer, 1601, "ERROR_INSTALL_SERVICE_FAILURE", "the Windows Installer service could not be reached",
     "See whether the service msiserver can be started"},
    {Installer, 1602, "ERROR_INSTALL_USEREXIT", "the installation was cancelled", "Try again"},
    {Installer, 1603, "ERROR_INSTALL_FAILURE", "a fatal error during installation",
     "Look into Installer Logs for \"Return value 3\"; common: disk full, files in use, missing permissions"},
    {Installer, 1605, "ERROR_UNKNOWN_PRODUCT", "the product to change is not installed",
     "Install the full product first"},
    {Installer, 1612, "ERROR_INSTALL_SOURCE_ABSENT", "the source of the installed product is not to be had",
     "Repair or install the full product anew"},
    {Installer, 1618, "ERROR_INSTALL_ALREADY_RUNNING", "another installation is running",
     "Try again when it has ended"},
    {Installer, 1619, "ERROR_INSTALL_PACKAGE_OPEN_FAILED",
     "the package inside the bundle could not be opened",
     "Download the bundle again; see whether the disk is full"},
    {Installer, 1620, "ERROR_INSTALL_PACKAGE_INVALID", "the package inside the bundle is damaged",
     "Download the bundle again"},
    {Installer, 1622, "ERROR_INSTALL_LOG_FAILURE", "the installer could not write its log",
     "See whether the service's temporary folder can be written and the disk has room"},
    {Installer, 1625, "ERROR_INSTALL_PACKAGE_REJECTED", "a policy of this machine forbids the installation",
     "Ask who manages the machine's policies"},
    {Installer, 1632, "ERROR_INSTALL_TEMP_UNWRITABLE", "the temporary folder is full or not to be written",
     "Make room on the system disk; see the access rights of the service's temporary folder"},
    {Installer, 1633, "ERROR_INSTALL_PLATFORM_UNSUPPORTED", "the package is for another kind of processor",
     "Download the bundle for this machine"},
    {Installer, 1638, "ERROR_PRODUCT_VERSION", "another version of the product is installed already",
     "Nothing if it is newer; else remove it first"},
    {Installer, 1641, "ERROR_SUCCESS_REBOOT_INITIATED", "installed, and a reboot began", "Nothing"},
    {Installer, 3010, "ERROR_SUCCESS_REBOOT_REQUIRED", "installed, and a reboot is required",
     "Reboot when it suits"},
    {Installer, 0xc0000005, "STATUS_ACCESS_VIOLATION", "the installer crashed",
     "Look into Installer Logs; report it to the publisher"},
    {Installer, 0xc0000135, "STATUS_DLL_NOT_FOUND", "the installer misses a DLL",
     "Report it to the publisher"},
    {Installer, 0xc000013a, "STATUS_CONTROL_C_EXIT", "the installer was ended from outside",
     "See who ended it, and install again"},

    {System, 0, "ERROR_SUCCESS", "no error was recorded", "The lines before it in the log say what failed"},
    {System, 1, "ERROR_INVALID_FUNCTION", "the file or device cannot do this", "See what kind of file it is"},
    {System, 2, "ERROR_FILE_NOT_FOUND", "the file does not exist", "Check the path; it must be absolute"},
    {System, 3, "ERROR_PATH_NOT_FOUND", "a folder of the path does not exist",
     "Check the path; the service does not see drives that a user has mapped"},
    {System, 5, "ERROR_ACCESS_DENIED", "access was denied",
     "See the access rights; the service's own account must be able to read a bundle"},
    {System, 8, "ERROR_NOT_ENOUGH_MEMORY", "memory ran out", "Close programs or add memory, and try again"},
    {System, 21, "ERROR_NOT_READY", "the drive is not ready", "See whether the drive is connected"},
    {System, 23, "ERROR_CRC", "the disk cannot read the data", "Check the disk; download the bundle again"},
    {System, 31, "ERROR_GEN_FAILURE",
     "a call failed without giving a reason, such as for a file without a signature",
     "Run zarn-update verify on the bundle"},
    {System, 32, "ERROR_SHARING_VIOLATION", "another program has the file open for writing",
     "Close the download or the scanner that holds it, and try again"},
    {System, 33, "ERROR_LOCK_VIOLATION", "another program has locked a part of the file",
     "Close that program, and try again"},
    {System, 39, "ERROR_HANDLE_DISK_FULL", "the disk is full", "Make room: three times the bundle's size"},
    {System, 53, "ERROR_BAD_NETPATH", "the network path was not found",
     "Copy the bundle to a local disk: the service has no share of its own"},
    {System, 80, "ERROR_FILE_EXISTS", "the file exists already", "Remove it, and try again"},
    {System, 87, "ERROR_INVALID_PARAMETER", "a parameter is wrong", "Check the path for strange characters"},
    {System, 112, "ERROR_DISK_FULL", "the disk is full", "Make room: three times the bundle's size"},
    {System, 123, "ERROR_INVALID_NAME", "the name has characters that are not allowed in one",
     "Check the path"},
    {System, 193, "ERROR_BAD_EXE_FORMAT", "the file is not a program, or one for another processor",
     "Download the bundle for this machine"},
    {System, 206, "ERROR_FILENAME_EXCED_RANGE", "the path is too long", "Use a shorter path"},
    {System, 216, "ERROR_EXE_MACHINE_TYPE_MISMATCH",
     "the program is for another processor or Windows version", "Download the bundle for this machine"},
    {System, 222, "ERROR_BAD_FILE_TYPE", "the path is not a plain file on a disk but a pipe or a device",
     "Name a file on a disk"},
    {System, 225, "ERROR_VIRUS_INFECTED", "a virus scanner stopped the file",
     "Ask who manages the scanner; report a false alarm to the publisher"},
    {System, 740, "ERROR_ELEVATION_REQUIRED", "administrator rights are required",
     "Run the command from an administrator's prompt"},
    {System, 1053, "ERROR_SERVICE_REQUEST_TIMEOUT", "the service did not answer in time when it was started",
     "Look into its log and the system's event log"},
    {System, 1056, "ERROR_SERVICE_ALREADY_RUNNING", "the service is running already", "Nothing"},
    {System, 1058, "ERROR_SERVICE_DISABLED", "the service is disabled",
     "Enable it: sc config ZarnUpdateService start= demand"},
    {System, 1060, "ERROR_SERVICE_DOES_NOT_EXIST", "the service is not installed", "Run the setup program"},
    {System, 1062, "ERROR_SERVICE_NOT_ACTIVE", "the service is not running",
     "Start it: sc start ZarnUpdateService"},
    {System, 1063, "ERROR_FAILED_SERVICE_CONTROLLER_CONNECT",
     "the service's program was started by hand instead of by the service control manager",
     "Start it as a service: sc start ZarnUpdateService"},
    {System, 1223, "ERROR_CANCELLED", "the operation was cancelled", "Try again"},
    {System, 1260, "ERROR_ACCESS_DISABLED_BY_POLICY", "a policy of this machine forbids the program",
     "Ask who manages the machine's policies"},
    {System, 1392, "ERROR_FILE_CORRUPT", "the file or folder is damaged on the disk", "Check the disk"},
    {System, 1455, "ERROR_COMMITMENT_LIMIT", "the paging file is too small", "Make room on the system disk"},
    {System, 1467, "ERROR_RESTART_APPLICATION", "a program asks to be restarted", "Start it again"},

    {Trust, 0x800b0001, "TRUST_E_PROVIDER_UNKNOWN", "Windows has no trust provider for this",
     "Repair the Windows installation"},
    {Trust, 0x800b0003, "TRUST_E_SUBJECT_FORM_UNKNOWN", "the file is of a kind that cannot carry a signature",
     "Use the .exe bundle of the publisher"},
    {Trust, 0x800b0004, "TRUST_E_SUBJECT_NOT_TRUSTED", "the signer is not trusted for this",
     "See the certificate in the file's properties; ask the publisher"},
    {Trust, 0x800b0100, "TRUST_E_NOSIGNATURE", "the file has no signature", "Download the bundle again"},
    {Trust, 0x800b0101, "CERT_E_EXPIRED",
     "a certificate has expired or is not valid yet, and no timestamp vouches for the signature",
     "Check the machine's clock; else the publisher must sign again"},
    {Trust, 0x800b0109, "CERT_E_UNTRUSTEDROOT", "the chain ends in a root that this machine does not trust",
     "Let the machine update its root certificates, or install the publisher's root by policy"},
    {Trust, 0x800b010a, "CERT_E_CHAINING", "the chain of certificates is incomplete",
     "The publisher must put the intermediate certificates into the signature; check the network"},
    {Trust, 0x800b010c, "CERT_E_REVOKED", "a certificate of the chain has been revoked",
     "Do not install this bundle; ask the publisher for a newly signed one"},
    {Trust, 0x800b010d, "CERT_E_UNTRUSTEDTESTROOT", "the chain ends in a test root", "Use a released bundle"},
    {Trust, 0x800b010e, "CERT_E_REVOCATION_FAILURE",
     "whether a certificate is revoked could not be found out",
     "Let the machine reach the revocation servers of the certificate's authority"},
    {Trust, 0x800b0110, "CERT_E_WRONG_USAGE", "the certificate may not sign programs",
     "The publisher must use a code-signing certificate"},
    {Trust, 0x800b0111, "TRUST_E_EXPLICIT_DISTRUST", "this machine distrusts the certificate explicitly",
     "Ask who manages the machine's certificate stores"},
    {Trust, 0x80096004, "TRUST_E_CERT_SIGNATURE", "the signature of a certificate is wrong",
     "Download the bundle again; ask the publisher"},
    {Trust, 0x80096005, "TRUST_E_TIME_STAMP", "the timestamp of the signature is wrong or not trusted",
     "Ask the publisher for a newly signed bundle"},
    {Trust, 0x80096010, "TRUST_E_BAD_DIGEST", "the file was changed after it was signed",
     "Download the bundle again; if it stays so, somebody changes it on the way"},
    {Trust, 0x80096019, "TRUST_E_BASIC_CONSTRAINTS", "a certificate of the chain may not issue certificates",
     "Ask the publisher for a newly signed bundle"},
    {Trust, 0x80092003, "CRYPT_E_FILE_ERROR", "the file could not be read for its signature",
     "See whether the file can be read"},
    {Trust, 0x80092009, "CRYPT_E_NO_MATCH", "no signature of a known form was found in the file",
     "Download the bundle again"},
    {Trust, 0x80092010, "CRYPT_E_REVOKED", "the certificate has been revoked",
     "Do not install this bundle; ask the publisher for a newly signed one"},
    {Trust, 0x80092012, "CRYPT_E_NO_REVOCATION_CHECK", "the certificate could not be checked for revocation",
     "Let the machine reach the revocation servers of the certificate's authority"},
    {Trust, 0x80092013, "CRYPT_E_REVOCATION_OFFLINE", "the revocation server was not to be reached",
     "Let the machine reach the revocation servers of the certificate's authority; check the proxy"},
    {Trust, 0x80092026, "CRYPT_E_SECURITY_SETTINGS", "the security settings of this machine forbid the file",
     "Ask who manages the machine's policies"},
    {Trust, 0x8009310b, "CRYPT_E_ASN1_BADTAG", "the signature or a certificate is malformed",
     "Download the bundle again"},

    {Rpc, 5, "RPC_S_ACCESS_DENIED", "the service refused this caller",
     "Call from this machine, as a local user"},
    {Rpc, 1702, "RPC_S_INVALID_BINDING", "the binding to the service is not valid",
     "Report it to the publisher"},
    {Rpc, 1715, "RPC_S_NOT_LISTENING", "the service is starting or stopping", "Try again in some seconds"},
    {Rpc, 1717, "RPC_S_UNKNOWN_IF", "what answers at the endpoint is not the update service",
     "See what runs instead: sc query ZarnUpdateService"},
    {Rpc, 1722, "RPC_S_SERVER_UNAVAILABLE", "the service is not running",
     "Start it: sc start ZarnUpdateService"},
    {Rpc, 1723, "RPC_S_SERVER_TOO_BUSY", "the service has too many calls", "Try again later"},
    {Rpc, 1726, "RPC_S_CALL_FAILED", "the service went away during the call",
     "See zarn-update status and zarn-update history before trying again"},
    {Rpc, 1727, "RPC_S_CALL_FAILED_DNE", "the service went away before it took the call",
     "Start it if need be, and try again"},
    {Rpc, 1753, "EPT_S_NOT_REGISTERED", "the service is not running", "Start it: sc start ZarnUpdateService"},
    {Rpc, 1825, "RPC_S_SEC_PKG_ERROR",
     "what answers at the endpoint is not the system and so not the service",
     "See zarn-update status, and which program holds the endpoint"},
    {Rpc, 1780, "RPC_X_NULL_REF_POINTER", "the call lacks its path", "Report it to the publisher"},
    {Rpc, 1783, "RPC_X_BAD_STUB_DATA", "the service could not read the call",
     "Use a tool of the same version"},

    {ProcessExit, 0, "", "the service stopped, or could not start; its log says which",
     "Nothing after a stop"},
    {ProcessExit, 1467, "", "the service ended itself to be restarted after an installation",
     "Nothing when recovery actions are set; else start it: sc start ZarnUpdateService"},
    {ProcessExit, 0xc0dedead, "", "the service met a fatal error and ended",
     "The last line of its log begins with FATAL ERROR and says why"},

    {ToolExit, 0, "", "done, or trusted", "Nothing"},
    {ToolExit, 1, "", "refused or failed", "Read its output, or its --json keys status and meaning"},
    {ToolExit, 2, "", "wrong arguments", "See zarn-update --help"},
    {ToolExit, 3, "", "the service is not installed, not running or not to be reached",
     "See zarn-update status; start it: sc start ZarnUpdateService"},
    {ToolExit, 4, "", "something on this machine was in the way of the tool", "Its message names it"},
    {ToolExit, 5, "", "interrupted: no answer came, what the service does is unknown",
     "See zarn-update status and zarn-update history before trying again"},

    {SetupExit, 0, "", "done", "Nothing"},
    {SetupExit, 740, "", "setup needs an administrator", "Run it elevated or as SYSTEM"},
    {SetupExit, 1053, "", "installed, but the service did not start",
     "Read the service's log, and run setup again"},
    {SetupExit, 1603, "", "setup failed; unless its log says otherwise, everything is as it was",
     "Read the last line of setup's log"},
    {SetupExit, 1605, "", "nothing to uninstall: the service is not installed", "Nothing"},
    {SetupExit, 1618, "",
     "busy: an update is being installed, the service does not stop, or another setup runs",
     "Try again later"},
    {SetupExit, 1633, "", "setup needs Windows 10 or later", "Use a newer Windows"},
    {SetupExit, 1639, "", "an argument of setup is wrong; nothing was touched",
     "Run setup with /?, which lists the arguments"},
    {SetupExit, 3010, "", "uninstalled; files in use go with the next reboot", "Reboot when it suits"},
};

constexpr bool isExplained(std::uint32_t status) {
  return std::any_of(std::begin(kExplanations), std::end(kExplanations),
                     [status](const Explanation& row) { return row.kind == Status && row.code == status; });
}
static_assert(isExplained(0) && isExplained(30000) && isExplained(30001) && isExplained(30002) &&
              isExplained(30003) && isExplained(30004) && isExplained(30005));

struct KindNames {
  CodeKind kind;
  std::string_view name;
  std::string_view key;
};

constexpr std::array<KindNames, 8> kKinds = {{
    {Status, "answer of the service", "status"},
    {ProcessExit, "exit code of ZarnUpdateService.exe", "service"},
    {ToolExit, "exit code of zarn-update", "tool"},
    {SetupExit, "exit code of setup", "setup"},
    {Installer, "exit code of an installer", "installer"},
    {System, "Win32 error", "win32"},
    {Trust, "trust error", "trust"},
    {Rpc, "status of a call to the service", "rpc"},
}};

const KindNames& namesOf(CodeKind kind) noexcept {
  return *std::find_if(kKinds.begin(), kKinds.end(),
                       [&](const KindNames& names) { return names.kind == kind; });
}

}  // namespace

std::string_view kindName(CodeKind kind) noexcept {
  return namesOf(kind).name;
}
std::string_view kindKey(CodeKind kind) noexcept {
  return namesOf(kind).key;
}

std::span<const Explanation> explanations() noexcept {
  return kExplanations;
}

std::vector<Explanation> explain(std::uint32_t code) {
  std::vector<Explanation> result;
  std::copy_if(std::begin(kExplanations), std::end(kExplanations), std::back_inserter(result),
               [&](const Explanation& row) { return row.code == code; });
  return result;
}

const Explanation* explain(CodeKind kind, std::uint32_t code) noexcept {
  const auto* const row =
      std::find_if(std::begin(kExplanations), std::end(kExplanations),
                   [&](const Explanation& one) { return one.kind == kind && one.code == code; });
  return row == std::end(kExplanations) ? nullptr : row;
}

std::optional<std::uint32_t> parseCode(std::string_view text) noexcept {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  std::uint32_t value = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), value, hexadecimal ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  constexpr std::uint32_t lowest = 0x80000000;
  if (negative && (hexadecimal || value > lowest)) return std::nullopt;
  return negative ? 0U - value : value;
}

std::optional<std::uint32_t> win32ErrorInside(std::uint32_t code) noexcept {
  constexpr std::uint32_t facilityWin32 = 0x80070000;
  if ((code & 0xffff0000U) != facilityWin32) return std::nullopt;
  return code & 0xffffU;
}

}  // namespace zarn::tool
