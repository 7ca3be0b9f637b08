// What a command hands back: texts for people, one object for scripts, and the
// process's exit code.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

namespace zarn::tool {

/// Keys keep the order in which they were added.
using Json = nlohmann::ordered_json;

enum class ExitCode : std::uint8_t {
  Success = 0,
  /// The question was answered, and the answer is no.
  Refused = 1,
  WrongArguments = 2,
  ServiceUnreachable = 3,
  /// This machine stood in the way: an unreadable file, a full disk, a folder that cannot be written.
  LocalFailure = 4,
  /// The wait ended before the answer came; what the service does is unknown.
  Interrupted = 5,
};

struct Answer {
  ExitCode exitCode = ExitCode::Success;
  /// For standard output: whole lines, nothing in them but printable text.
  std::string text;
  /// For standard error: one sentence; empty when the command could answer.
  std::string error;
  /// For --json: the command's own keys.
  Json json = Json::object();
};

inline Answer failure(ExitCode code, std::string sentence) {
  return {code, {}, std::move(sentence), Json::object()};
}

}  // namespace zarn::tool
