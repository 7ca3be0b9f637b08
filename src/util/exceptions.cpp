#include "util/exceptions.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace zarn {
namespace {

// The demangler answers with memory of malloc(), or with none.
struct FreeDeleter {
  void operator()(char* text) const noexcept { std::free(text); }  // NOLINT: see above
};

}  // namespace

std::string typeName(const std::exception& error) {
  const char* const encoded = typeid(error).name();
  int status = 0;
  const std::unique_ptr<char, FreeDeleter> readable(abi::__cxa_demangle(encoded, nullptr, nullptr, &status));
  return status == 0 && readable != nullptr ? readable.get() : encoded;
}

}  // namespace zarn
