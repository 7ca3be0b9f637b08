// What a command hands back: texts for people, one object for scripts, and the
// process's exit code. Everything in this folder works on what it is given and asks
// the system for nothing but its words for errors.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
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

/// The answer of a command that could not do its work, with the sentence that says why.
[[nodiscard]] inline Answer failed(ExitCode code, std::string sentence) {
  return {code, {}, std::move(sentence), Json::object()};
}

/// The object that scripts see, and a line break: the keys that every command has, then its own.
[[nodiscard]] inline std::string jsonText(const Answer& answer, const std::string& command) {
  Json object = Json::object();
  object["command"] = command;
  object["ok"] = answer.exitCode == ExitCode::Success;
  object["exitCode"] = static_cast<int>(answer.exitCode);
  object["error"] = answer.error.empty() ? Json(nullptr) : Json(answer.error);
  object.update(answer.json);
  return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

template <typename T>
[[nodiscard]] Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

}  // namespace zarn::tool
