#include <cstdlib>

#include "util/environment.h"

namespace zarn {

std::optional<std::string> environmentVariable(const char* name) {
  const char* const text = std::getenv(name);
  if (text == nullptr) return std::nullopt;
  return text;
}

}  // namespace zarn
