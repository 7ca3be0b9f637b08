// Stands at the service's endpoint and answers as a test says.
#pragma once

#include <cstdint>
#include <string>

namespace zarn::testing {

class FakeService {
 public:
  /// Serves from here to the end of the process.
  static FakeService& instance();

  std::int32_t status = 0;
  std::int32_t installerExitCode = 0;
  /// The path of the last call; UTF-8.
  std::string path;

 private:
  FakeService();
};

}  // namespace zarn::testing
