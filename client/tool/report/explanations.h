// What the codes of the service, of installers, of Windows and of this tool mean,
// and what to do about them. A table for each kind of code.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "client/tool/report/answer.h"

namespace zarn::tool {

/// Whose code it is; one number can be several.
enum class CodeKind : std::uint8_t {
  ServiceStatus,  // the service's answer to check and install
  Installer,      // an installer's exit code
  System,         // a Win32 error
  Trust,          // an error of the trust provider or the cryptography calls
  Rpc,            // of a call to the service
  ServiceExit,    // of ZarnUpdateService.exe
  ToolExit,       // of zarn-update.exe
  PackageExit,    // of msiexec with the service's package
};

struct Explanation {
  std::uint32_t code;
  /// Symbolic name; empty when the code has none.
  std::string_view name;
  /// What happened, a clause without a full stop.
  std::string_view meaning;
  /// What to do next, a sentence without a full stop.
  std::string_view advice;
};

struct CodeTable {
  CodeKind kind;
  /// What the kind is called in front of a code of it.
  std::string_view name;
  /// The same for scripts: one word in lower case.
  std::string_view key;
  std::span<const Explanation> rows;
};

/// The Win32 error inside an HRESULT of facility 7 (0x8007....).
[[nodiscard]] std::optional<std::uint32_t> win32ErrorInside(std::uint32_t code) noexcept;

/// Every kind, in the order in which a code is explained.
[[nodiscard]] std::span<const CodeTable> codeTables();

/// The first of this kind; null when its table has none.
[[nodiscard]] const Explanation* explain(CodeKind kind, std::uint32_t code);
/// The first of the first kind that has one, so that what is said of a code in one
/// place wins over what it means in general.
[[nodiscard]] const Explanation* explain(CodeKind kind, CodeKind otherwise, std::uint32_t code);

/// Reads "30004", "-2146762496" and "0x800b0100", all of 32 bits.
[[nodiscard]] std::optional<std::uint32_t> parseCode(std::string_view text) noexcept;

/// All that is known of the code that `text` spells or names, the system's words included:
/// a number as above, also with blanks around it; eight hexadecimal digits without "0x",
/// which can be decimal as well; a name, in any letters, also without its prefix.
[[nodiscard]] Answer explanationAnswer(const std::string& text);

/// Every code of every table, by kind.
[[nodiscard]] Answer codeListAnswer();

}  // namespace zarn::tool
