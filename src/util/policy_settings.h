// What an administrator may set for the machine in the registry, below
// HKEY_LOCAL_MACHINE in the policy key (util/product_names.h). A row that stands for
// environment variables is put in their place once, when the process starts, so that
// whoever reads them cannot miss it; the others are read for every request
// (trust/update_policy.h).
//
// An empty text takes the variables away: what is built in holds. A value that is there
// and cannot be used never gives way to what the environment says, but for the log level,
// which opens nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "os/system_error.h"
#include "util/logging.h"
#include "util/product_names.h"
#include "util/stored_value.h"

namespace zarn {

enum class PolicyKind : std::uint8_t { Text, Number };

struct PolicySetting {
  template <std::size_t size>
  constexpr PolicySetting(const names::Name<size>& name, PolicyKind its, std::uint32_t fewest,
                          std::uint32_t highest)
      : value(name.narrow), wideValue(name.wide), kind(its), least(fewest), most(highest) {}

  const char* value;
  const wchar_t* wideValue;
  PolicyKind kind;  ///< REG_SZ or REG_DWORD
  /// Of a number: its bounds. Of a text: characters.
  std::uint32_t least;
  std::uint32_t most;

  /// The variable that the value becomes, and one that must not stand beside it. Null:
  /// none, which without the first is a row that is read for every request.
  const char* variable = nullptr;
  std::array<const char*, 2> cleared{};
  /// Whether a text that is not empty can be used; null: any can.
  bool (*isUsable)(std::string_view text) = nullptr;
  /// What the variable becomes when the value cannot be used, with which whoever reads it
  /// finds nothing usable either. Null: the variable stays.
  const char* whenUnusable = nullptr;
};

/// Longer than any product name.
inline constexpr std::size_t kLongestProductName = 1023;

inline constexpr std::size_t kPolicySettingCount = 8;
[[nodiscard]] const std::array<PolicySetting, kPolicySettingCount>& policySettings() noexcept;

/// The values in the table's order, numbers in decimal digits.
using StoredSettings = std::array<Stored<std::string>, kPolicySettingCount>;

/// Why a stored value cannot be used, in words that fit behind a colon, printable; empty
/// when it can, or is missing. Never shows a value, which may hold a password.
[[nodiscard]] std::string policyProblem(const PolicySetting& setting, const Stored<std::string>& stored);

/// What a policy does to the environment, in order, and what is to be said of it.
struct PolicyEffect {
  struct Change {
    std::string variable;
    std::string text;  ///< empty: the variable goes
  };
  std::vector<Change> changes;
  std::vector<std::string> inForce;   ///< names of values
  std::vector<std::string> warnings;  ///< sentences, printable
};
[[nodiscard]] PolicyEffect effectOf(const StoredSettings& stored);

/// The threshold for which ZARN_MEDIA_SERVER_LOG_LEVEL asks: info, debug or verbose;
/// nothing when it is none of them.
[[nodiscard]] std::optional<LogLevel> chosenLogLevel();

// ---- Windows only ------------------------------------------------------------------

/// The machine's policy as it is now.
[[nodiscard]] StoredSettings readPolicySettings();

/// Changes this process's environment by the machine's policy. Not while other threads
/// read the environment. Fails when a variable cannot be changed; the process must not go
/// on as if there were no policy then.
[[nodiscard]] Result<PolicyEffect> applyPolicySettings();

}  // namespace zarn
