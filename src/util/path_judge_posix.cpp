#include "util/path_judge.h"

namespace zarn {

// The native build has other paths and no folders of its own.
PathKind judgeAppDataPath(std::string_view /*path*/, const std::vector<std::string>& /*ownFolders*/) {
  return PathKind::LocalFolder;
}

std::vector<std::string> ownFoldersOf(const std::string& /*program*/) {
  return {};
}

std::vector<std::string> ownFolders() {
  return {};
}

}  // namespace zarn
