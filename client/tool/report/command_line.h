// The commands of zarn-update, and the command line, read.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace zarn::tool {

/// How long `wait` waits when nothing is said, and at most.
inline constexpr std::uint32_t kUsualWaitSeconds = 600;
inline constexpr std::uint32_t kLongestWaitSeconds = 86'400;

/// What the command line said, UTF-8.
struct Arguments {
  std::string target;
  std::uint32_t seconds = kUsualWaitSeconds;
  std::string logs;
  std::uint32_t last = 0;
  bool offline = false;
  bool json = false;
};

/// Which command; who runs them has a function for each.
enum class Verb : std::uint8_t {
  Check,
  Install,
  SetAppData,
  Verify,
  Status,
  History,
  Explain,
  CollectLogs,
  Wait,
  Doctor,
  PurgeLogs
};

/// What some commands know beside what all do.
enum class Option : std::uint8_t { Logs, Last, Offline };

/// The one positional argument of a command.
struct Argument {
  /// Seconds may be left out.
  enum class Kind : std::uint8_t { None, Text, Seconds };
  Kind kind = Kind::None;
  const char* name = "";
  const char* help = "";
};

struct Command {
  const char* name;
  const char* summary;
  Argument argument;
  /// Shown at the end of the command's help.
  const char* notes;
  Verb verb;
  std::span<const Option> options = {};
};

/// "install BUNDLE", "wait [SECONDS]".
[[nodiscard]] std::string usageOf(const Command& command);

[[nodiscard]] std::span<const Command> commands() noexcept;

/// A command to run.
struct Invocation {
  const Command* command;
  Arguments arguments;
};

/// A text that was asked for: help or the version.
struct Information {
  std::string text;
};

/// Why the command line makes no sense, in one sentence.
struct Mistake {
  std::string sentence;
  /// --json was among the arguments.
  bool json;
};

using CommandLine = std::variant<Invocation, Information, Mistake>;

/// `arguments`: UTF-8, without the program's name.
[[nodiscard]] CommandLine readCommandLine(const std::vector<std::string>& arguments);

}  // namespace zarn::tool
