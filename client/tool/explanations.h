// What the codes of the service, of installers, of Windows and of this tool mean,
// and what to do about them. One table.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace zarn::tool {

/// Whose code it is; one number can be several.
enum class CodeKind : std::uint8_t {
  Status,       // the service's answer to check and install
  ProcessExit,  // of ZarnUpdateService.exe
  ToolExit,     // of zarn-update.exe
  SetupExit,    // of ZarnUpdateServiceSetup.exe
  Installer,    // an installer's exit code
  System,       // a Win32 error
  Trust,        // an error of the trust provider or the cryptography calls
  Rpc,          // of a call to the service
};

struct Explanation {
  CodeKind kind;
  std::uint32_t code;
  /// Symbolic name; empty when the code has none.
  std::string_view name;
  /// What happened, a clause without a full stop.
  std::string_view meaning;
  /// What to do next, a sentence without a full stop.
  std::string_view advice;
};

[[nodiscard]] std::string_view kindName(CodeKind kind) noexcept;
/// The same for scripts: one word in lower case.
[[nodiscard]] std::string_view kindKey(CodeKind kind) noexcept;

[[nodiscard]] std::span<const Explanation> explanations() noexcept;
[[nodiscard]] std::vector<Explanation> explain(std::uint32_t code);
/// The first of this kind; null when the table has none.
[[nodiscard]] const Explanation* explain(CodeKind kind, std::uint32_t code) noexcept;

/// Reads "30004", "-2146762496" and "0x800b0100", all of 32 bits.
[[nodiscard]] std::optional<std::uint32_t> parseCode(std::string_view text) noexcept;

/// The Win32 error inside an HRESULT of facility 7 (0x8007....).
[[nodiscard]] std::optional<std::uint32_t> win32ErrorInside(std::uint32_t code) noexcept;

}  // namespace zarn::tool
