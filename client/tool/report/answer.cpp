#include "client/tool/report/answer.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace zarn::tool {
namespace {

constexpr std::size_t kMostKeys = 32;

/// In the order in which scripts see them; docs/zarn-update.md lists the same.
constexpr struct {
  std::string_view command;
  /// Those behind the last are empty.
  std::array<std::string_view, kMostKeys> keys;
} kKeys[] = {
    {"check",
     {"bundle", "trusted", "status", "meaning", "advice", "decidedBy", "installRefusal", "rpcStatus"}},
    {"install",
     {"bundle", "installed", "installerExitCode", "elapsedMs", "status", "meaning", "advice", "decidedBy",
      "rpcStatus"}},
    {"set-app-data", {"directory", "rpcStatus"}},
    {"verify",
     {"bundle", "trusted", "size", "steps", "signer", "profile", "log", "status", "meaning", "advice"}},
    {"status",
     {"state",       "processId",  "serviceExitCode", "program",           "version",
      "account",     "logFolder",  "logFolderExists", "settings",          "settingsChangedSinceStart",
      "startType",   "recovery",   "installing",      "installingUnknown", "versionRunning",
      "authorities", "tempFolder", "recordFolder",    "earlierLogFolders", "lastOutcome",
      "problems",    "notes"}},
    {"history", {"file", "requests", "skippedLines", "olderOmitted", "older"}},
    {"explain", {"code", "signed", "hex", "systemText", "entries", "otherReadings"}},
    {"collect-logs", {"target", "logFolder", "files", "missing"}},
    {"wait", {"installing", "unknown", "waitedMs"}},
    {"doctor", {"checks"}},
    {"purge-logs", {"files", "left"}},
    {"completion", {"script"}},
    {"version", {"version"}},
    {"help", {"text"}},
};

}  // namespace

std::span<const std::string_view> jsonKeysOf(std::string_view command) noexcept {
  for (const auto& [name, keys] : kKeys) {
    if (name != command) continue;
    const auto end = std::ranges::find(keys, std::string_view());
    return {keys.begin(), end};
  }
  return {};
}

std::string jsonText(const Answer& answer, const std::string& command, Reader reader) {
  Json object = Json::object();
  object["command"] = command;
  object["ok"] = answer.exitCode == ExitCode::Success;
  object["exitCode"] = static_cast<int>(answer.exitCode);
  object["error"] = answer.error.empty() ? Json(nullptr) : Json(answer.error);
  for (const std::string_view key : jsonKeysOf(command)) object[std::string(key)] = nullptr;
  object.update(answer.json);
  return object.dump(2, ' ', reader == Reader::Program, Json::error_handler_t::replace) + "\n";
}

}  // namespace zarn::tool
