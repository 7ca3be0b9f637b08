// The commands of zarn-update, one file each.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "client/tool/answer.h"

namespace zarn::tool {

/// What the command line said, UTF-8.
struct Arguments {
  std::string target;
  std::string logs;
  std::uint32_t last = 0;
  bool json = false;
};

/// Options of a single command, beside the ones that all have.
enum class Extra : std::uint8_t { None, Logs, LogsAndLast };

struct Command {
  const char* name;
  const char* summary;
  /// Name and meaning of the one positional argument; null when there is none.
  const char* argument;
  const char* argumentHelp;
  Extra extra;
  /// Shown at the end of the command's help.
  const char* notes;
  /// May throw; the entry turns that into a local failure.
  Answer (*run)(const Arguments& arguments);
};

[[nodiscard]] std::span<const Command> commands() noexcept;

Answer runCheck(const Arguments& arguments);
Answer runInstall(const Arguments& arguments);
Answer runSetAppData(const Arguments& arguments);
Answer runStatus(const Arguments& arguments);
Answer runExplain(const Arguments& arguments);
Answer runHistory(const Arguments& arguments);
Answer runVerify(const Arguments& arguments);
Answer runCollectLogs(const Arguments& arguments);

}  // namespace zarn::tool
