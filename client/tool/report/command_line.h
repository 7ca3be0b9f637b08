// The commands of zarn-update, and the command line, read.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace zarn::tool {

/// What the command line said, UTF-8.
struct Arguments {
  std::string target;
  std::string logs;
  std::uint32_t last = 0;
  bool json = false;
};

/// Which command; who runs them has a function for each.
enum class Verb : std::uint8_t { Check, Install, SetAppData, Verify, Status, History, Explain, CollectLogs };

/// Options of a single command, beside the ones that all have.
enum class Extra : std::uint8_t { None, Logs, LogsAndLast };

struct Command {
  const char* name;
  const char* summary;
  /// Name and meaning of the one positional argument; null when there is none.
  const char* argument;
  const char* argumentHelp;
  /// Shown at the end of the command's help.
  const char* notes;
  Verb verb;
  Extra extra;
};

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
