#include "update/rpc_server.h"

#include <cwchar>
#include <exception>
#include <string_view>

#include "util/exceptions.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn::rpc_server {
namespace {

/// Reads no further than one unit behind the longest path: a caller need not have ended
/// its text there.
bool isAcceptable(const wchar_t* path) {
  return path != nullptr && wcsnlen(path, kMaximumPathUnits + 1) <= kMaximumPathUnits;
}

/// `error` is null for what is no std::exception. Without memory for the line there is none.
void logEscaped(const char* procedure, const std::exception* error) noexcept {
  quietly([&] {
    logLine(LogLevel::Error, "%s: Caught std::exception %s, type: %s", std::string_view(procedure),
            error != nullptr ? printable(error->what()) : std::string("unknown"),
            error != nullptr ? typeName(*error) : std::string("unknown"));
  });
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
