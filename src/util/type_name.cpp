#include "util/type_name.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace zarn {
namespace {

struct FreeDeleter {
  void operator()(char* text) const noexcept { std::free(text); }  // NOLINT: what the demangler answers
};

}  // namespace

std::string typeName(const std::exception& error) {
  const char* const encoded = typeid(error).name();
  int status = 0;
  const std::unique_ptr<char, FreeDeleter> readable(abi::__cxa_demangle(encoded, nullptr, nullptr, &status));
  return status == 0 && readable != nullptr ? readable.get() : encoded;
}

}  // namespace zarn
