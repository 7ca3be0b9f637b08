// Waits until the running service's process ends and tells its exit code, for the demo.
#include <cstdio>
#include <exception>

#include "e2e/service_under_test.h"

int main() {
  try {
    const zarn::testing::ServiceUnderTest service;
    const auto process = service.process();
    std::puts("waiting");
    std::fflush(stdout);
    std::printf("ZarnUpdateService.exe ended with exit code %lu\n",
                zarn::testing::ServiceUnderTest::waitForExit(process));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
