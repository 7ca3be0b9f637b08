// What an administrator can ask of setup and uninstaller.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zarn::setup {

enum class Program : std::uint8_t { Setup, Uninstaller };

enum class StartType : std::uint8_t { Automatic, Demand };

struct Options {
  /// Without it a new service starts automatically and an existing one keeps its start type.
  std::optional<StartType> start;
  /// Empty: the account service that is built in. Without it: what was set before.
  std::optional<std::wstring> accountHost;
  /// A file with certificates in PEM form; empty: the one that is shipped.
  /// Without it: what was set before.
  std::optional<std::wstring> caBundle;
  /// Where to log; empty: the default place.
  std::wstring log;
  /// How long to wait for a running update and for the service to stop.
  std::chrono::seconds wait{120};
  bool uninstall = false;
  bool purgeLogs = false;
  bool help = false;
};

/// Reads the arguments that follow the program's name. Throws SetupError with
/// BadArguments for one that `program` does not know or whose value is of no use.
[[nodiscard]] Options parseOptions(Program program, const std::vector<std::wstring>& arguments);

/// The options of this process.
[[nodiscard]] Options ownOptions(Program program);

/// Where this process was asked to log, also when its other arguments are of no
/// use; empty: the default place.
[[nodiscard]] std::wstring ownLog();

/// What /? shows.
[[nodiscard]] const wchar_t* help(Program program) noexcept;

}  // namespace zarn::setup
