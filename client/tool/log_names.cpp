#include "client/tool/log_names.h"

#include <algorithm>

namespace zarn::tool {

bool isServiceLog(std::string_view name) noexcept {
  return name.starts_with("Zarn Update Service") || name.starts_with("Update History") ||
         name == "Startup Crash.log";
}

bool isInstallerLog(std::string_view name) noexcept {
  return (name.starts_with("Zarn Media Server") || name.starts_with("dd_vcredist")) && name.ends_with(".log");
}

bool isZipName(std::string_view path) noexcept {
  constexpr std::string_view extension = ".zip";
  if (path.size() < extension.size()) return false;
  path.remove_prefix(path.size() - extension.size());
  return std::equal(path.begin(), path.end(), extension.begin(), [](char given, char wanted) {
    return (given >= 'A' && given <= 'Z' ? given + 32 : given) == wanted;
  });
}

}  // namespace zarn::tool
