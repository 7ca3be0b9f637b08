#include "client/tool/report/explanations.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "client/tool/report/command_line.h"
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
    {1604, "ERROR_INSTALL_SUSPEND", "the installation was suspended and is not complete",
     "Restart Windows, and install again"},
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
    {1624, "ERROR_INSTALL_TRANSFORM_FAILURE", "a transform could not be applied to the package",
     "See which transforms the installed product has, and whether they are still there; else remove the "
     "product and install it anew"},
    {1625, "ERROR_INSTALL_PACKAGE_REJECTED", "a policy of this machine forbids the installation",
     "Ask who manages the machine's policies"},
    {1632, "ERROR_INSTALL_TEMP_UNWRITABLE", "the temporary folder is full or not to be written",
     "Make room on the system disk; see the access rights of the service's temporary folder"},
    {1633, "ERROR_INSTALL_PLATFORM_UNSUPPORTED", "the package is for another kind of processor",
     "Download the bundle for this machine"},
    {1636, "ERROR_PATCH_PACKAGE_INVALID", "the patch inside the bundle is damaged, or is none",
     "Download the bundle again; if it stays so, report it to the publisher"},
    {1638, "ERROR_PRODUCT_VERSION", "another version of the product is installed already",
     "Nothing if it is newer; else remove it first"},
    {1640, "ERROR_INSTALL_REMOTE_DISALLOWED",
     "this system lets only administrators install from a remote desktop session",
     "Install at the machine itself, or as an administrator"},
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
     "See whether the file is signed: its properties show its digital signatures; download the bundle again"},
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
    {1072, "ERROR_SERVICE_MARKED_FOR_DELETE",
     "the service is marked for deletion, and goes when the last program that holds it lets go",
     "Close the services console and whatever else shows services, or restart Windows; then install the "
     "package again"},
    {1223, "ERROR_CANCELLED", "the operation was cancelled", "Try again"},
    {1260, "ERROR_ACCESS_DISABLED_BY_POLICY", "a policy of this machine forbids the program",
     "Ask who manages the machine's policies"},
    {1392, "ERROR_FILE_CORRUPT", "the file or folder is damaged on the disk", "Check the disk"},
    {1455, "ERROR_COMMITMENT_LIMIT", "the paging file is too small", "Make room on the system disk"},
    {1467, "ERROR_RESTART_APPLICATION", "a program asks to be restarted", "Start it again"},
    {14001, "ERROR_SXS_CANT_GEN_ACTCTX",
     "a library that the program's manifest asks for is not there, such as a Visual C++ run-time",
     "The system's event log names the library (source SideBySide); install it, or download the bundle "
     "again"},
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
    {1747, "RPC_S_UNKNOWN_AUTHN_SERVICE", "this system's RPC cannot tell who is at the other end",
     "Repair the Windows installation: every Windows has this service"},
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
    rows.push_back({code, facts.name, facts.meaning, facts.advice});
    if (facts.status == Status::Installed) rows.push_back({code, facts.name, trusted, "Nothing"});
  }
  return rows;
}

std::string capitalized(std::string_view clause) {
  std::string text(clause);
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return sentence(text);
}

// ---- What is said of one code ---------------------------------------------------------

/// What stands under one heading: the rows of one kind, of several kinds where these say
/// the same.
struct Section {
  std::string title;
  std::vector<const Explanation*> rows;
};

bool saysTheSame(const Section& one, const Section& other) {
  return std::ranges::equal(one.rows, other.rows, [](const Explanation* a, const Explanation* b) {
    return a->meaning == b->meaning && a->advice == b->advice;
  });
}

Json entryOf(const CodeTable& table, const Explanation& row) {
  return {{"kind", table.key},
          {"code", row.code},
          {"name", row.name},
          {"meaning", row.meaning},
          {"advice", row.advice}};
}

/// All that is known of a code.
struct Known {
  std::uint32_t code = 0;
  std::string words;  ///< the system's
  std::vector<Section> sections;
  Json entries = Json::array();

  [[nodiscard]] bool isAnything() const { return !sections.empty() || !words.empty(); }

  /// What `table` has of `number`: the code itself, or one inside it, which is named then.
  void add(const CodeTable& table, std::uint32_t number) {
    Section section{std::string(table.name), {}};
    for (const Explanation& row : table.rows) {
      if (row.code != number) continue;
      section.rows.push_back(&row);
      entries.push_back(entryOf(table, row));
    }
    if (section.rows.empty()) return;
    if (number != code) section.title += " " + std::to_string(number);
    const std::string_view name = section.rows.front()->name;
    if (!name.empty()) section.title += ", " + std::string(name);
    const auto same =
        std::ranges::find_if(sections, [&](const Section& one) { return saysTheSame(one, section); });
    if (same == sections.end()) {
      sections.push_back(std::move(section));
    } else {
      same->title += ", and as " + section.title;
    }
  }
};

Known knownOf(std::uint32_t code) {
  Known known;
  known.code = code;
  known.words = systemErrorPhrase(code);
  const auto inside = win32ErrorInside(code);
  for (const CodeTable& table : codeTables()) {
    known.add(table, code);
    const bool isOfWindows = table.kind == CodeKind::Installer || table.kind == CodeKind::System;
    if (inside && isOfWindows) known.add(table, *inside);
  }
  return known;
}

std::string textOf(const Known& known) {
  std::string text =
      fmt::format("{} (0x{:08x}, {})\n", known.code, known.code, static_cast<std::int32_t>(known.code));
  for (const Section& section : known.sections) {
    text += "\n  As " + section.title + ":\n";
    for (const Explanation* const row : section.rows)
      text += "    " + capitalized(row->meaning) + "\n    Next: " + capitalized(row->advice) + "\n";
  }
  if (!known.words.empty()) text += "\n  Windows says: " + printable(known.words) + "\n";
  if (!known.isAnything()) text += "\n  Nothing is known of this code.\n";
  return text;
}

Json objectOf(const Known& known) {
  return {{"code", known.code},
          {"signed", static_cast<std::int32_t>(known.code)},
          {"hex", fmt::format("0x{:08x}", known.code)},
          {"entries", known.entries},
          {"systemText", known.words}};
}

// ---- Which codes a text means -----------------------------------------------------------

constexpr std::string_view kNamePrefixes[] = {"ERROR_", "CERT_E_", "TRUST_E_", "CRYPT_E_",
                                              "RPC_S_", "RPC_X_",  "EPT_S_",   "STATUS_"};

/// "CHAINING" of "CERT_E_CHAINING"; the whole name when it has no such prefix.
std::string_view withoutPrefix(std::string_view name) {
  for (const std::string_view prefix : kNamePrefixes)
    if (name.starts_with(prefix)) return name.substr(prefix.size());
  return name;
}

/// Each code once whose row has the name, as `shaped` makes it, in any letters.
std::vector<std::uint32_t> codesNamed(std::string_view text, std::string_view (*shaped)(std::string_view)) {
  std::vector<std::uint32_t> codes;
  for (const CodeTable& table : codeTables()) {
    for (const Explanation& row : table.rows) {
      const bool isMeant = !row.name.empty() && os::equalsIgnoringCase(shaped(row.name), text);
      if (isMeant && std::ranges::find(codes, row.code) == codes.end()) codes.push_back(row.code);
    }
  }
  return codes;
}

/// Eight hexadecimal digits are a code as it stands in many logs, without "0x".
std::optional<std::uint32_t> bareHexadecimal(std::string_view text) {
  return text.size() == 8 ? os::parseNumber<std::uint32_t>(text, 16) : std::nullopt;
}

/// Every code that the text can mean, the likeliest first.
std::vector<std::uint32_t> codesOf(std::string_view text) {
  std::vector<std::uint32_t> codes;
  if (const auto code = parseCode(text)) codes.push_back(*code);
  const auto hexadecimal = bareHexadecimal(text);
  // Of digits alone only what would be an error is meant to be hexadecimal.
  constexpr std::uint32_t severityBit = 0x80000000;
  if (hexadecimal && (codes.empty() || (*hexadecimal & severityBit) != 0)) {
    if (codes.empty() || !knownOf(codes.front()).sections.empty()) {
      codes.push_back(*hexadecimal);
    } else {
      codes.front() = *hexadecimal;  // which is all that this can mean
    }
  }
  if (codes.empty()) codes = codesNamed(text, [](std::string_view name) { return name; });
  if (codes.empty()) codes = codesNamed(text, withoutPrefix);
  return codes;
}

std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
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

std::optional<std::uint32_t> win32ErrorInside(std::uint32_t code) noexcept {
  constexpr std::uint32_t facilityWin32 = 0x80070000;
  if ((code & 0xffff0000U) != facilityWin32) return std::nullopt;
  return code & 0xffffU;
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
  const std::vector<std::uint32_t> codes = codesOf(withoutBlanks(text));
  if (codes.empty()) {
    return failed(ExitCode::WrongArguments, sentence("This is no code of 32 bits, and no name of one: " +
                                                     typed(text) + "; see zarn-update explain --list"));
  }
  Answer answer;
  answer.exitCode = ExitCode::Refused;
  Json others = Json::array();
  for (const std::uint32_t code : codes) {
    const Known known = knownOf(code);
    if (known.isAnything()) answer.exitCode = ExitCode::Success;
    answer.text += (answer.text.empty() ? "" : "\n") + textOf(known);
    if (answer.json.empty()) {
      answer.json = objectOf(known);
    } else {
      others.push_back(objectOf(known));
    }
  }
  answer.json["otherReadings"] = std::move(others);
  return answer;
}

Answer codeListAnswer() {
  Answer answer;
  for (const char* const key : {"code", "signed", "hex"}) answer.json[key] = nullptr;
  Json& entries = answer.json["entries"] = Json::array();
  for (const CodeTable& kind : codeTables()) {
    std::vector<std::vector<std::string>> rows;
    for (const Explanation& row : kind.rows) {
      entries.push_back(entryOf(kind, row));
      rows.push_back({codeText(row.code), std::string(row.name), std::string(row.meaning)});
    }
    std::string heading = capitalized(kind.name);
    heading.pop_back();  // the full stop
    answer.text +=
        (answer.text.empty() ? "" : "\n") + heading + ":\n" + table({"CODE", "NAME", "MEANING"}, rows);
  }
  answer.json["systemText"] = nullptr;
  answer.json["otherReadings"] = Json::array();
  return answer;
}

}  // namespace zarn::tool
