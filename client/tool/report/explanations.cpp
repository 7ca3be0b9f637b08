#include "client/tool/report/explanations.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "os/text.h"
#include "update/status.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

// What an installer's exit code means is often not what the same number means as an
// error of the system, so each kind has its own rows.
constexpr Explanation kInstallerRows[] = {
    {0, "ERROR_SUCCESS", "installed", "Nothing"},
    {259, "STILL_ACTIVE", "the installer was still running after ten minutes, and goes on",
     "Wait for it to end, then see which version is there; do not install again meanwhile"},
    {1601, "ERROR_INSTALL_SERVICE_FAILURE", "the Windows Installer service could not be reached",
     "See whether the service msiserver can be started"},
    {1602, "ERROR_INSTALL_USEREXIT", "the installation was cancelled", "Try again"},
    {1603, "ERROR_INSTALL_FAILURE", "a fatal error during installation",
     "Look into Installer Logs for \"Return value 3\"; common: disk full, files in use, missing permissions"},
    {1605, "ERROR_UNKNOWN_PRODUCT", "the product to change is not installed",
     "Install the full product first"},
    {1612, "ERROR_INSTALL_SOURCE_ABSENT", "the source of the installed product is not to be had",
     "Repair or install the full product anew"},
    {1618, "ERROR_INSTALL_ALREADY_RUNNING", "another installation is running", "Try again when it has ended"},
    {1619, "ERROR_INSTALL_PACKAGE_OPEN_FAILED", "the package inside the bundle could not be opened",
     "Download the bundle again; see whether the disk is full"},
    {1620, "ERROR_INSTALL_PACKAGE_INVALID", "the package inside the bundle is damaged",
     "Download the bundle again"},
    {1622, "ERROR_INSTALL_LOG_FAILURE", "the installer could not write its log",
     "See whether the service's temporary folder can be written and the disk has room"},
    {1625, "ERROR_INSTALL_PACKAGE_REJECTED", "a policy of this machine forbids the installation",
     "Ask who manages the machine's policies"},
    {1632, "ERROR_INSTALL_TEMP_UNWRITABLE", "the temporary folder is full or not to be written",
     "Make room on the system disk; see the access rights of the service's temporary folder"},
    {1633, "ERROR_INSTALL_PLATFORM_UNSUPPORTED", "the package is for another kind of processor",
     "Download the bundle for this machine"},
    {1638, "ERROR_PRODUCT_VERSION", "another version of the product is installed already",
     "Nothing if it is newer; else remove it first"},
    {1641, "ERROR_SUCCESS_REBOOT_INITIATED", "installed, and a reboot began", "Nothing"},
    {3010, "ERROR_SUCCESS_REBOOT_REQUIRED", "installed, and a reboot is required", "Reboot when it suits"},
    {0xc0000005, "STATUS_ACCESS_VIOLATION", "the installer crashed",
     "Look into Installer Logs; report it to the publisher"},
    {0xc0000135, "STATUS_DLL_NOT_FOUND", "the installer misses a DLL", "Report it to the publisher"},
    {0xc000013a, "STATUS_CONTROL_C_EXIT", "the installer was ended from outside",
     "See who ended it, and install again"},
};

constexpr Explanation kSystemRows[] = {
    {0, "ERROR_SUCCESS", "no error was recorded", "The lines before it in the log say what failed"},
    {1, "ERROR_INVALID_FUNCTION", "the file or device cannot do this", "See what kind of file it is"},
    {2, "ERROR_FILE_NOT_FOUND", "the file does not exist", "Check the path; it must be absolute"},
    {3, "ERROR_PATH_NOT_FOUND", "a folder of the path does not exist",
     "Check the path; the service does not see drives that a user has mapped"},
    {5, "ERROR_ACCESS_DENIED", "access was denied",
     "See the access rights; the service's own account must be able to read a bundle"},
    {8, "ERROR_NOT_ENOUGH_MEMORY", "memory ran out", "Close programs or add memory, and try again"},
    {21, "ERROR_NOT_READY", "the drive is not ready", "See whether the drive is connected"},
    {23, "ERROR_CRC", "the disk cannot read the data", "Check the disk; download the bundle again"},
    {31, "ERROR_GEN_FAILURE", "a call failed without giving a reason, such as for a file without a signature",
     "Run zarn-update verify on the bundle"},
    {32, "ERROR_SHARING_VIOLATION", "another program has the file open for writing",
     "Close the download or the scanner that holds it, and try again"},
    {33, "ERROR_LOCK_VIOLATION", "another program has locked a part of the file",
     "Close that program, and try again"},
    {39, "ERROR_HANDLE_DISK_FULL", "the disk is full", "Make room: three times the bundle's size"},
    {53, "ERROR_BAD_NETPATH", "the network path was not found",
     "Copy the bundle to a local disk: the service has no share of its own"},
    {80, "ERROR_FILE_EXISTS", "the file exists already", "Remove it, and try again"},
    {87, "ERROR_INVALID_PARAMETER", "a parameter is wrong", "Check the path for strange characters"},
    {112, "ERROR_DISK_FULL", "the disk is full", "Make room: three times the bundle's size"},
    {123, "ERROR_INVALID_NAME", "the name has characters that are not allowed in one", "Check the path"},
    {193, "ERROR_BAD_EXE_FORMAT", "the file is not a program, or one for another processor",
     "Download the bundle for this machine"},
    {206, "ERROR_FILENAME_EXCED_RANGE", "the path is too long", "Use a shorter path"},
    {216, "ERROR_EXE_MACHINE_TYPE_MISMATCH", "the program is for another processor or Windows version",
     "Download the bundle for this machine"},
    {222, "ERROR_BAD_FILE_TYPE", "the path is not a plain file on a disk but a pipe or a device",
     "Name a file on a disk"},
    {225, "ERROR_VIRUS_INFECTED", "a virus scanner stopped the file",
     "Ask who manages the scanner; report a false alarm to the publisher"},
    {740, "ERROR_ELEVATION_REQUIRED", "administrator rights are required",
     "Run the command from an administrator's prompt"},
    {1053, "ERROR_SERVICE_REQUEST_TIMEOUT", "the service did not answer in time when it was started",
     "Look into its log and the system's event log"},
    {1056, "ERROR_SERVICE_ALREADY_RUNNING", "the service is running already", "Nothing"},
    {1058, "ERROR_SERVICE_DISABLED", "the service is disabled",
     "Enable it: sc.exe config ZarnUpdateService start= demand"},
    {1060, "ERROR_SERVICE_DOES_NOT_EXIST", "the service is not installed", "Install the service's package"},
    {1062, "ERROR_SERVICE_NOT_ACTIVE", "the service is not running", "Start it: net start ZarnUpdateService"},
    {1063, "ERROR_FAILED_SERVICE_CONTROLLER_CONNECT",
     "the service's program was started by hand instead of by the service control manager",
     "Start it as a service: net start ZarnUpdateService"},
    {1223, "ERROR_CANCELLED", "the operation was cancelled", "Try again"},
    {1260, "ERROR_ACCESS_DISABLED_BY_POLICY", "a policy of this machine forbids the program",
     "Ask who manages the machine's policies"},
    {1392, "ERROR_FILE_CORRUPT", "the file or folder is damaged on the disk", "Check the disk"},
    {1455, "ERROR_COMMITMENT_LIMIT", "the paging file is too small", "Make room on the system disk"},
    {1467, "ERROR_RESTART_APPLICATION", "a program asks to be restarted", "Start it again"},
};

// Of the trust provider, of the checks of a chain and of the calls that take a signature
// apart: what a refused bundle can show in the log and in its record.
constexpr Explanation kTrustRows[] = {
    {0x800b0001, "TRUST_E_PROVIDER_UNKNOWN", "Windows has no trust provider for this",
     "Repair the Windows installation"},
    {0x800b0003, "TRUST_E_SUBJECT_FORM_UNKNOWN", "the file is of a kind that cannot carry a signature",
     "Use the .exe bundle of the publisher"},
    {0x800b0004, "TRUST_E_SUBJECT_NOT_TRUSTED", "the signer is not trusted for this",
     "See the certificate in the file's properties; ask the publisher"},
    {0x800b0100, "TRUST_E_NOSIGNATURE", "the file has no signature", "Download the bundle again"},
    {0x800b0101, "CERT_E_EXPIRED",
     "a certificate has expired or is not valid yet, and no timestamp vouches for the signature",
     "Check the machine's clock; else the publisher must sign again"},
    {0x800b0109, "CERT_E_UNTRUSTEDROOT", "the chain ends in a root that this machine does not trust",
     "Let the machine update its root certificates, or install the publisher's root by policy"},
    {0x800b010a, "CERT_E_CHAINING", "the chain of certificates is incomplete",
     "The publisher must put the intermediate certificates into the signature; check the network"},
    {0x800b010c, "CERT_E_REVOKED", "a certificate of the chain has been revoked",
     "Do not install this bundle; ask the publisher for a newly signed one"},
    {0x800b010d, "CERT_E_UNTRUSTEDTESTROOT", "the chain ends in a test root", "Use a released bundle"},
    {0x800b010e, "CERT_E_REVOCATION_FAILURE", "whether a certificate is revoked could not be found out",
     "Let the machine reach the revocation servers of the certificate's authority"},
    {0x800b0110, "CERT_E_WRONG_USAGE", "the certificate may not sign programs",
     "The publisher must use a code-signing certificate"},
    {0x800b0111, "TRUST_E_EXPLICIT_DISTRUST", "this machine distrusts the certificate explicitly",
     "Ask who manages the machine's certificate stores"},
    {0x80096004, "TRUST_E_CERT_SIGNATURE", "the signature of a certificate is wrong",
     "Download the bundle again; ask the publisher"},
    {0x80096005, "TRUST_E_TIME_STAMP", "the timestamp of the signature is wrong or not trusted",
     "Ask the publisher for a newly signed bundle"},
    {0x80096010, "TRUST_E_BAD_DIGEST", "the file was changed after it was signed",
     "Download the bundle again; if it stays so, somebody changes it on the way"},
    {0x80096019, "TRUST_E_BASIC_CONSTRAINTS", "a certificate of the chain may not issue certificates",
     "Ask the publisher for a newly signed bundle"},
    {0x80092003, "CRYPT_E_FILE_ERROR", "the file could not be read for its signature",
     "See whether the file can be read"},
    {0x80092009, "CRYPT_E_NO_MATCH", "no signature of a known form was found in the file",
     "Download the bundle again"},
    {0x80092010, "CRYPT_E_REVOKED", "the certificate has been revoked",
     "Do not install this bundle; ask the publisher for a newly signed one"},
    {0x80092012, "CRYPT_E_NO_REVOCATION_CHECK", "the certificate could not be checked for revocation",
     "Let the machine reach the revocation servers of the certificate's authority"},
    {0x80092013, "CRYPT_E_REVOCATION_OFFLINE", "the revocation server was not to be reached",
     "Let the machine reach the revocation servers of the certificate's authority; check the proxy"},
    {0x80092026, "CRYPT_E_SECURITY_SETTINGS", "the security settings of this machine forbid the file",
     "Ask who manages the machine's policies"},
    {0x8009310b, "CRYPT_E_ASN1_BADTAG", "the signature or a certificate is malformed",
     "Download the bundle again"},
};

constexpr Explanation kRpcRows[] = {
    {5, "RPC_S_ACCESS_DENIED", "the service refused this caller", "Call from this machine, as a local user"},
    {1702, "RPC_S_INVALID_BINDING", "the binding to the service is not valid", "Report it to the publisher"},
    {1715, "RPC_S_NOT_LISTENING", "the service is starting or stopping", "Try again in some seconds"},
    {1717, "RPC_S_UNKNOWN_IF", "what answers at the endpoint is not the update service",
     "See what runs instead: sc.exe query ZarnUpdateService"},
    {1722, "RPC_S_SERVER_UNAVAILABLE", "the service is not running", "Start it: net start ZarnUpdateService"},
    {1723, "RPC_S_SERVER_TOO_BUSY", "the service has too many calls", "Try again later"},
    {1726, "RPC_S_CALL_FAILED", "the service went away during the call",
     "See zarn-update status and zarn-update history before trying again"},
    {1727, "RPC_S_CALL_FAILED_DNE", "the service went away before it took the call",
     "Start it if need be, and try again"},
    {1753, "EPT_S_NOT_REGISTERED", "the service is not running", "Start it: net start ZarnUpdateService"},
    {1825, "RPC_S_SEC_PKG_ERROR", "what answers at the endpoint is not the system and so not the service",
     "See zarn-update status, and which program holds the endpoint"},
    {1780, "RPC_X_NULL_REF_POINTER", "the call lacks its path", "Report it to the publisher"},
    {1783, "RPC_X_BAD_STUB_DATA", "the service could not read the call", "Use a tool of the same version"},
};

constexpr Explanation kServiceExitRows[] = {
    {0, "", "the service stopped, or could not start; its log says which", "Nothing after a stop"},
    {1467, "", "the service ended itself to be restarted after an installation",
     "Nothing when recovery actions are set; else start it: net start ZarnUpdateService"},
    {0xc0dedead, "", "the service met a fatal error and ended",
     "The last line of its log begins with FATAL ERROR and says why"},
};

// The same codes stand in the help and in the documentation, in other words.
constexpr Explanation kToolExitRows[] = {
    {0, "", "done, or trusted", "Nothing"},
    {1, "", "refused or failed", "Read its output, or its --json keys status and meaning"},
    {2, "", "wrong arguments", "See zarn-update --help"},
    {3, "", "the service is not installed, not running or not to be reached",
     "See zarn-update status; start it: net start ZarnUpdateService"},
    {4, "", "something on this machine was in the way of the tool", "Its message names it"},
    {5, "", "interrupted: no answer came, what the service does is unknown",
     "See zarn-update status and zarn-update history before trying again"},
};

constexpr Explanation kPackageExitRows[] = {
    {0, "", "the package is installed, or removed", "Nothing"},
    {1601, "", "Windows Installer is not to be had", "Try again later"},
    {1602, "", "somebody cancelled the installation of the package", "Nothing"},
    {1603, "", "the package was not installed or removed, and everything is as it was",
     "Read the last sentence of the log that msiexec wrote (/l*v FILE)"},
    {1605, "", "nothing to remove: the package is not installed", "Nothing"},
    {1618, "", "Windows Installer is busy with another package", "Try again later"},
    {1619, "", "the package cannot be read", "Download it again"},
    {1620, "", "the package cannot be read", "Download it again"},
    {1625, "", "a policy of this machine forbids installing the package",
     "Ask who manages the machine's policies"},
    {1633, "", "the package is for 64-bit Windows", "Use a 64-bit Windows"},
    {1638, "", "another build of the same version is installed", "Remove it first"},
    {1639, "", "msiexec does not understand its command line", "Compare it with the manual's"},
    {1641, "", "the package is installed, and a restart has begun", "Nothing"},
    {3010, "", "the package is installed; files in use are exchanged with the next restart",
     "Restart when it suits"},
};

/// The service's own table of its statuses, and what 0 means where nothing was installed.
std::vector<Explanation> statusRows() {
  constexpr std::string_view trusted = "for a check: signature and signer are trusted";
  static_assert(trusted.ends_with(kTrustedMeaning));
  std::vector<Explanation> rows;
  for (const StatusFacts& facts : statuses()) {
    const auto code = static_cast<std::uint32_t>(facts.status);
    rows.push_back({code, "", facts.meaning, facts.advice});
    if (facts.status == Status::Installed) rows.push_back({code, "", trusted, "Nothing"});
  }
  return rows;
}

std::string capitalized(std::string_view clause) {
  std::string text(clause);
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return sentence(text);
}

void addExplanation(Answer& answer, const CodeTable& table, const Explanation& row) {
  std::string title(table.name);
  if (!row.name.empty()) title += ", " + std::string(row.name);
  answer.text += "\n  As " + title + ":\n    " + capitalized(row.meaning) +
                 "\n    Next: " + capitalized(row.advice) + "\n";
  answer.json["entries"].push_back({{"kind", table.key},
                                    {"code", row.code},
                                    {"name", row.name},
                                    {"meaning", row.meaning},
                                    {"advice", row.advice}});
}

/// Everything that the tables have of `code`, of every kind or of one.
void addExplanations(Answer& answer, std::uint32_t code, std::optional<CodeKind> only = std::nullopt) {
  for (const CodeTable& table : codeTables()) {
    if (only && table.kind != *only) continue;
    for (const Explanation& row : table.rows) {
      if (row.code == code) addExplanation(answer, table, row);
    }
  }
}

/// The Win32 error inside an HRESULT of facility 7 (0x8007....).
std::optional<std::uint32_t> win32ErrorInside(std::uint32_t code) noexcept {
  constexpr std::uint32_t facilityWin32 = 0x80070000;
  if ((code & 0xffff0000U) != facilityWin32) return std::nullopt;
  return code & 0xffffU;
}

}  // namespace

std::span<const CodeTable> codeTables() {
  static const std::vector<Explanation> ofStatuses = statusRows();
  static const CodeTable tables[] = {
      {CodeKind::ServiceStatus, "answer of the service", "status", ofStatuses},
      {CodeKind::Installer, "exit code of an installer", "installer", kInstallerRows},
      {CodeKind::System, "Win32 error", "win32", kSystemRows},
      {CodeKind::Trust, "trust error", "trust", kTrustRows},
      {CodeKind::Rpc, "status of a call to the service", "rpc", kRpcRows},
      {CodeKind::ServiceExit, "exit code of ZarnUpdateService.exe", "service", kServiceExitRows},
      {CodeKind::ToolExit, "exit code of zarn-update", "tool", kToolExitRows},
      {CodeKind::PackageExit, "exit code of the package", "package", kPackageExitRows},
  };
  return tables;
}

const Explanation* explain(CodeKind kind, std::uint32_t code) {
  for (const CodeTable& table : codeTables()) {
    if (table.kind != kind) continue;
    const auto row = std::ranges::find(table.rows, code, &Explanation::code);
    return row == table.rows.end() ? nullptr : &*row;
  }
  return nullptr;
}

const Explanation* explain(CodeKind kind, CodeKind otherwise, std::uint32_t code) {
  const Explanation* const row = explain(kind, code);
  return row != nullptr ? row : explain(otherwise, code);
}

std::optional<std::uint32_t> parseCode(std::string_view text) noexcept {
  if (text.starts_with("0x") || text.starts_with("0X")) {
    return os::parseNumber<std::uint32_t>(text.substr(2), 16);
  }
  if (!text.starts_with('-')) return os::parseNumber<std::uint32_t>(text);
  // What a 32-bit program prints for a code whose highest bit is set.
  const auto negative = os::parseNumber<std::int32_t>(text);
  return negative ? std::optional(static_cast<std::uint32_t>(*negative)) : std::nullopt;
}

Answer explanationAnswer(const std::string& text) {
  const auto code = parseCode(text);
  if (!code) {
    return failed(ExitCode::WrongArguments, sentence("This is not a code of 32 bits: " + printable(text)));
  }
  Answer answer;
  const std::string words = systemErrorPhrase(*code);
  const std::string hexadecimal = fmt::format("0x{:08x}", *code);
  const auto asSigned = static_cast<std::int32_t>(*code);
  answer.json["code"] = *code;
  answer.json["signed"] = asSigned;
  answer.json["hex"] = hexadecimal;
  answer.json["entries"] = Json::array();
  answer.json["systemText"] = words;
  answer.text = fmt::format("{} ({}, {})\n", *code, hexadecimal, asSigned);
  addExplanations(answer, *code);
  if (const auto inside = win32ErrorInside(*code)) addExplanations(answer, *inside, CodeKind::System);
  if (!words.empty()) answer.text += "\n  Windows says: " + printable(words) + "\n";
  if (answer.json["entries"].empty() && words.empty()) {
    answer.exitCode = ExitCode::Refused;
    answer.text += "\n  Nothing is known of this code.\n";
  }
  return answer;
}

}  // namespace zarn::tool
