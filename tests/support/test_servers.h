// The servers that tools/stage/servers.py has started. Their list is in the file
// that the environment variable ZARN_TEST_SERVERS names; ctest sees to both.
#pragma once

#include <fstream>
#include <map>
#include <string>

#include "os/process.h"
#include "util/file_utils.h"

namespace zarn::testing {

class TestServers {
 public:
  static constexpr char kProfilePath[] = "/api/zmscert/profile";

  /// Throws when there are no servers: a test that needs them must not pass without.
  TestServers() {
    std::ifstream file(
        FileUtils::toPath(platformPath(environmentVariable("ZARN_TEST_SERVERS").value())).c_str());
    for (std::string name, fact; std::getline(file, name, '=') && std::getline(file, fact);)
      facts_[name] = fact;
  }

  /// "host:port" of a scenario.
  [[nodiscard]] const std::string& host(const std::string& scenario) const { return facts_.at(scenario); }
  /// https, but for the scenario "plain_http".
  [[nodiscard]] std::string url(const std::string& scenario, std::string_view path = kProfilePath) const {
    return std::string(scenario == "plain_http" ? "http://" : "https://").append(host(scenario)).append(path);
  }
  /// A file of the servers ("ca", "other_ca_file", "access_log", "profile") as this platform names it.
  [[nodiscard]] std::string file(const std::string& name) const { return platformPath(host(name)); }

 private:
  /// Wine shows the host's root as drive Z.
  static std::string platformPath(const std::string& path) {
#ifdef _WIN32
    return path.starts_with('/') ? "Z:" + path : path;
#else
    return path;
#endif
  }

  std::map<std::string, std::string> facts_;
};

}  // namespace zarn::testing
