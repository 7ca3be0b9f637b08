// The command line, read.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "client/tool/commands.h"

namespace zarn::tool {

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
