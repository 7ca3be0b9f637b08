// Asks the service for a check and an installation of a path that need not be one;
// zarn-update would not pass it on.
#include "e2e/caller.h"

int main(int argc, char** argv) {
  using namespace zarn::testing;  // NOLINT(google-build-using-namespace)
  return argc == 2 && check(argv[1]) == 30004 && install(argv[1]).status == 30002 ? 0 : 1;
}
