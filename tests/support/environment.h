// Environment variables of the test program, and of the programs that it starts.
#pragma once

#include <cstdlib>
#include <list>
#include <string>

namespace zarn::testing {

inline void setEnvironment(const std::string& name, const std::string& text) {
  static std::list<std::string> kept;  // putenv() takes no copy
  ::putenv(kept.emplace_back(name + "=" + text).data());
}

}  // namespace zarn::testing
