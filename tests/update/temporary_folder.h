// A system temporary directory and an application-data directory of a test's own.
#pragma once

#include <boost/filesystem/directory.hpp>
#include <cstdlib>
#include <string>

#include "support/temp_directory.h"
#include "util/file_utils.h"

namespace zarn::testing {

/// Sets an environment variable for a scope. Empty and unset are the same.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const std::string& value) : name_(name) {
    const char* const former = std::getenv(name);
    if (former != nullptr) former_ = former;
    set(value);
  }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;
  ~ScopedVariable() { set(former_); }

 private:
  void set(const std::string& value) const {
#ifdef _WIN32
    _putenv_s(name_, value.c_str());  // an empty value removes the variable
#else
    value.empty() ? unsetenv(name_) : setenv(name_, value.c_str(), 1);
#endif
  }

  const char* name_;
  std::string former_;
};

struct TemporaryFolder {
  TemporaryFolder() { FileUtils::setApplicationDataOverride(appData.path()); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() { FileUtils::setApplicationDataOverride(""); }

  [[nodiscard]] std::string installerLog(const std::string& name) const {
    return FileUtils::join(FileUtils::join(FileUtils::logDirectory(), "Installer Logs"), name);
  }

  TempDirectory temp;
  TempDirectory appData;
#ifdef _WIN32
  ScopedVariable variable{"TMP", temp.path()};
#else
  ScopedVariable variable{"TMPDIR", temp.path()};
#endif
};

}  // namespace zarn::testing
