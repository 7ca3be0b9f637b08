#include "update/rpc_server.h"

#include <cwchar>
#include <exception>
#include <string_view>

#include "util/exceptions.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn::rpc_server {
namespace {

bool isAcceptable(const wchar_t* path) {
  return path != nullptr && wcsnlen(path, kMaximumPathUnits + 1) <= kMaximumPathUnits;
}

void logEscaped(const char* procedure, const std::exception* error) noexcept {
  try {
    logLine(LogLevel::Error, "%s: Caught std::exception %s, type: %s", std::string_view(procedure),
            error != nullptr ? printable(error->what()) : std::string("unknown"),
            error != nullptr ? typeName(*error) : std::string("unknown"));
  } catch (...) {  // NOLINT(bugprone-empty-catch): nothing is left to say it with
  }
}

}  // namespace

Status answerCall(const char* procedure, const wchar_t* path, Status fallback,
                  const std::function<Status(const std::wstring&)>& work) noexcept {
  try {
    if (isAcceptable(path)) return work(path);
    logLine(LogLevel::Error, "%s: the path is missing or too long.", std::string_view(procedure));
  } catch (const std::exception& error) {
    logEscaped(procedure, &error);
  } catch (...) {
    logEscaped(procedure, nullptr);
  }
  return fallback;
}

}  // namespace zarn::rpc_server
