// A system temporary directory and an application-data directory of a test's own.
#pragma once

#include "support/test.h"

namespace zarn::testing {

struct TemporaryFolder {
  TemporaryFolder() {
    use(temp.path());
    FileUtils::setApplicationDataOverride(appData.path());
  }
  ~TemporaryFolder() {
    use(former);
    FileUtils::setApplicationDataOverride("");
  }

  [[nodiscard]] std::string installerLog(const std::string& name) const {
    return FileUtils::join(FileUtils::join(FileUtils::logDirectory(), "Installer Logs"), name);
  }

  const std::string former = toUtf8(boost::filesystem::temp_directory_path());
  TempDirectory temp;
  TempDirectory appData;

 private:
  static void use(const std::string& temporaryDirectory) {
    for (const char* variable : {"TMP", "TMPDIR"}) setEnvironment(variable, temporaryDirectory);
  }
};

}  // namespace zarn::testing
