// A directory of a test's own, gone with the test however it ends.
#pragma once

#include <boost/filesystem/operations.hpp>
#include <fstream>
#include <iterator>
#include <string>

#include "os/process.h"
#include "util/file_utils.h"

namespace zarn::testing {

class TempDirectory {
 public:
  TempDirectory() : path_(parent() / boost::filesystem::unique_path("zarn-%%%%-%%%%-%%%%")) {
    boost::filesystem::create_directories(path_);
  }
  TempDirectory(TempDirectory&&) = delete;
  ~TempDirectory() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] std::string path() const { return FileUtils::toUtf8(path_); }
  /// Full path of `name` in the directory.
  [[nodiscard]] std::string operator/(std::string_view name) const {
    return FileUtils::toUtf8(path_ / FileUtils::toPath(name));
  }

 private:
  /// On Windows not the temporary directory, which is a place of the service's own.
  static boost::filesystem::path parent() {
    const auto data = environmentVariable("LOCALAPPDATA");
    return data ? FileUtils::toPath(*data) : boost::filesystem::temp_directory_path();
  }

  boost::filesystem::path path_;
};

/// The whole file as bytes; empty when there is none.
inline std::string readFile(std::string_view path) {
  std::ifstream file(FileUtils::toPath(path).c_str(), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(std::string_view path, std::string_view content) {
  std::ofstream file(FileUtils::toPath(path).c_str(), std::ios::binary | std::ios::trunc);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
}

}  // namespace zarn::testing
