// Runs the helper program as an installer.
#pragma once

#include <windows.h>

#include <string>

#include "update/temporary_folder.h"
#include "util/string_utils.h"

namespace zarn::testing {

/// From now on the helper program ends with `exitCode` after `sleepMs` and records its command line.
class HelperOrder {
 public:
  explicit HelperOrder(std::uint32_t exitCode, unsigned sleepMs = 0) {
    setEnvironment("ZARN_HELPER", std::to_string(exitCode) + " " + std::to_string(sleepMs));
    setEnvironment("ZARN_HELPER_RECORD", folder_ / "record");
  }
  [[nodiscard]] std::string commandLine() const { return readFile(folder_ / "record"); }

 private:
  TempDirectory folder_;
};

inline std::wstring wide(const std::string& text) {
  return StringUtils::utf8to16(text);
}

}  // namespace zarn::testing
