// What a command hands back: texts for people, one object for scripts, and the
// process's exit code. Everything in this folder works on what it is given and asks
// the system for nothing but its words for errors.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
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

/// The keys of a command's own in its JSON object; none for a name that is no command's.
[[nodiscard]] std::span<const std::string_view> jsonKeysOf(std::string_view command) noexcept;

/// Who reads the output: a program, which may take its bytes for those of another
/// character set (PowerShell 5.1 takes them for the console's), or a person at a console.
enum class Reader : std::uint8_t { Program, Person };

/// The object that scripts see, and a line break: the keys that every command has, then
/// all of the command's own, which are null where `answer` does not have them. For a
/// program it is ASCII alone.
[[nodiscard]] std::string jsonText(const Answer& answer, const std::string& command,
                                   Reader reader = Reader::Program);

template <typename T>
[[nodiscard]] Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

}  // namespace zarn::tool
