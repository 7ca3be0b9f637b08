// The commands of zarn-update, and the command line, read.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "client/tool/report/answer.h"

namespace zarn::tool {

/// How long `wait` waits when nothing is said, and at most.
inline constexpr std::uint32_t kUsualWaitSeconds = 600;
inline constexpr std::uint32_t kLongestWaitSeconds = 86'400;

/// The most that `--last` takes, which is more than a record has.
inline constexpr std::uint32_t kMostRequests = 1'000'000;

/// What the command line said, UTF-8. What was not said is as it is here: no text and no
/// number that may be given means "not given".
struct Arguments {
  /// Empty when none was given, and for `set-app-data ""`.
  std::string target;
  std::uint32_t seconds = kUsualWaitSeconds;
  std::string logs;
  std::uint32_t last = 0;
  std::string since;
  bool all = false;
  bool failed = false;
  bool list = false;
  bool check = false;
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
  PurgeLogs,
  Completion,
  Version,
  Help
};

/// An option has one name and one meaning, whichever command knows it.
enum class Option : std::uint8_t { AsJson, Logs, Last, All, Failed, Since, List, Check, Offline };

/// The one positional argument of a command.
struct Argument {
  enum class Kind : std::uint8_t { None, Path, Text, Seconds, Command };
  Kind kind = Kind::None;
  const char* name = "";
  const char* help = "";
  bool isOptional = false;
  bool mayBeEmpty = false;
};

struct Command {
  const char* name;
  const char* summary;
  Argument argument;
  /// Shown at the end of the command's help; whole lines, broken by hand.
  const char* notes;
  Verb verb;
  /// Beside --json, which every command knows.
  std::span<const Option> options = {};
  /// What is wrong with arguments that have their form, such as that two contradict each
  /// other; no full stop, and empty when nothing is.
  std::string (*objection)(const Arguments&) = nullptr;
};

[[nodiscard]] std::span<const Command> commands() noexcept;

/// Null when there is none of this name.
[[nodiscard]] const Command* commandNamed(const std::string& name) noexcept;

/// "install BUNDLE", "wait [SECONDS]".
[[nodiscard]] std::string usageOf(const Command& command);

/// Where an option is kept in what was read: a flag, a text, or a number that is 1 at least.
using OptionMember = std::variant<bool Arguments::*, std::string Arguments::*, std::uint32_t Arguments::*>;

struct OptionFacts {
  Option option;
  const char* name;
  /// What the option's value is called; empty for a flag.
  const char* value;
  const char* help;
  OptionMember member;
};

[[nodiscard]] std::span<const OptionFacts> options() noexcept;

/// Whether the command knows the option.
[[nodiscard]] bool knows(const Command& command, Option option) noexcept;

/// "--last N", "--json".
[[nodiscard]] std::string usageOf(const OptionFacts& option);

/// What `help` says; null for all commands.
[[nodiscard]] std::string helpText(const Command* command);
[[nodiscard]] Answer helpAnswer(const Arguments& arguments);
[[nodiscard]] Answer versionAnswer();

/// The script for the profile of PowerShell.
[[nodiscard]] Answer completionAnswer();

/// What somebody typed, fit to stand in a sentence: printable, cut, in quotation marks
/// where its beginning and end could not be seen.
[[nodiscard]] std::string typed(std::string_view text);

/// A command to run.
struct Invocation {
  const Command* command;
  Arguments arguments;
};

/// Why the command line makes no sense.
struct Mistake {
  /// One sentence, which speaks of what was typed.
  std::string sentence;
  /// --json was among the arguments.
  bool json;
  /// The command that was meant; null when none was given or there is none of that name.
  const Command* command;
  /// Nobody asked for anything, so that the help says more than the sentence.
  bool isBare = false;
};

[[nodiscard]] Answer mistakeAnswer(const Mistake& mistake);

using CommandLine = std::variant<Invocation, Mistake>;

/// `arguments`: UTF-8, without the program's name. Wishes for help and version come back
/// as the commands of these names.
[[nodiscard]] CommandLine readCommandLine(const std::vector<std::string>& arguments);

}  // namespace zarn::tool
